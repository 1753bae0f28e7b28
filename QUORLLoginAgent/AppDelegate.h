#pragma once

#include "AgentMessagingService.h"
#include "Application.h"
#include "Clock.h"
#include "ErrorPage.h"
#include "FileInputs.h"
#include "HtmlUtils.h"
#include "MachineDomain.h"
#include "OfflineMFAController.h"
#include "PendingRequest.h"
#include "Port.h"
#include "PortalOperation.h"
#include "Resources.h"
#include "Value.h"
#include "WebView.h"
#include "Window.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace quorl {

/// Any server certificate is accepted in the web view. Written once at launch, from the
/// configuration's "RESTRICT_BADCERT"; read by the certificate handling alone.
extern bool allowAnyHttps;

/// What the delegate is built on; all of it outlives the delegate.
struct AppServices {
    Application& application;
    PortSystem& ports;
    const Resources& resources;
    const Clock& clock;
};

/// The running agent: owns the web view, the relay, the request being served and the offline flow,
/// and receives their callbacks. Main thread only; the relay's thread shares nothing with it but
/// ports and the relay's `isServiceDone`.
class AppDelegate final : public WebViewDelegate, public WindowDelegate {
  public:
    explicit AppDelegate(const AppServices& services);
    ~AppDelegate() override;
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Sets everything up, in a fixed order. Without a login panel the program stops at once.
    void applicationDidFinishLaunching();

  private:
    // Lifecycle (AppDelegate.cpp)
    /// Ends the relay and closes the log.
    void appWillTerminate();
    /// The action of the panel's link: opens the self-service page.
    void launch();
    WebViewConfiguration registerCallbackHandler();
    void setNotificationObservers();
    void showLoginPanel();
    void startMessaging();

    // Machine (AppDelegate_Environment.cpp)
    void setEnvironmentalDetails();

    // Portal (AppDelegate_Portal.cpp)
    /// The configuration dictionary, read on first use and never again.
    const Value& getLoginAgentParams();
    /// The page's URL; nothing, and the error page shown, when the server is not configured.
    std::optional<std::string> getURLWithOperation(PortalOperation operation);
    /// Shows the browser window for the operation.
    void launchQuorlPortal(PortalOperation operation);
    void prepareBrowserWindow();
    void layOutBrowserWindow();
    void startOfflineMFA();
    void endOfflinePage();
    void loadPortalPage(PortalOperation operation);
    std::string appName() const;

    // Browser (AppDelegate_Browser.cpp)
    /// Dresses panel and window from the configuration, and settles the certificate policy.
    void initBrowser();
    void hideBrowserPortal();
    void clearBrowserPortal();
    void clearCookies();
    /// A page is on its way: the window shows it at once, and says so when it takes long.
    void showLoading();
    void handleFileInjection(PageEvent event);
    void windowDidResize() override;
    void windowWillClose() override;
    void windowWasIdle() override;
    NavigationDecision decidePolicyForNavigationAction(const std::string& url) override;
    void didStartProvisionalNavigation() override;
    void didCommitNavigation() override;
    void didFinishNavigation(const std::string& url) override;
    void didFailNavigation(const LoadError& error) override;
    void didFailProvisionalNavigation(const LoadError& error) override;
    ChallengeAnswer didReceiveAuthenticationChallenge(AuthenticationMethod method) override;
    void estimatedProgressChanged(double progress) override;
    void webContentProcessDidTerminate() override;

    // Errors (AppDelegate_Errors.cpp)
    /// Clears the page and shows the text in the error box, and around it what to do about it; with
    /// a "Retry" link in the box on request.
    void showError(ErrorKind kind, const std::string& text, bool reload);
    /// The same for a text of the string tables.
    void showLocalizedError(ErrorKind kind, std::string_view key);
    /// The same for the kind's own text.
    void showLocalizedError(ErrorKind kind);
    void renderErrorPage();
    /// What is asked for once more may come this time.
    bool mayRetry() const;
    /// Does what a link of the error page stands for; false when the URL is none of them.
    bool followOwnLink(const std::string& url);
    std::string localized(std::string_view key);

    // Page bridge (AppDelegate_PageBridge.cpp)
    void didReceiveScriptMessage(const std::string& channel, const std::optional<std::string>& body,
                                 const MessageSource& source) override;
    void getOfflineEnrollmentAPIAuthzHeader();
    /// Takes a page's message as its final word: answers the requester, or shows its error text.
    void sendMFAResult(const Value& message);
    bool offlineFlowRuns() const;

    // Requests (AppDelegate_MFARequest.cpp)
    /// A message on the application's port: the relay's check-in, a request, or its withdrawal.
    void handlePortMessage(PortMessage message);
    void handleRequest(const PortMessage& message);
    void requestWithdrawn();
    /// Hides the window, answers the request (null: without an answer) and forgets it.
    void sendMFAResponse(const Value& result);
    void answerRequest(const Value& result);
    /// What the window shows was opened for the request that waits.
    bool showsRequest() const;

    Application& application_;
    PortSystem& ports_;
    const Resources& resources_;
    const Clock& clock_;
    LoginPanel* window_ = nullptr;
    BrowserWindow* customBrowserWindow_ = nullptr;
    std::unique_ptr<WebView> webViewControl_;

    std::optional<ErrorPage> errorPage_;

    PendingRequest request_;
    /// What the window was opened for last; nothing once it has been cleared.
    std::optional<PortalOperation> shown_;
    /// An offline flow has run since the start; it is never forgotten.
    bool isOfflineMFA_ = false;
    const Value* loginAgentProps_ = nullptr;
    std::string appSupportDir_;
    std::string waitingWords_;  ///< kept, since each load needs them
    std::FILE* logFileP_ = nullptr;
    MachineEnvironment machine_;

    std::unique_ptr<Port> appLocalPort_;
    SendRightPtr serverPort_;
    std::unique_ptr<AgentMessagingService> agentMessagingService_;
    std::thread relay_;

    std::shared_ptr<OfflineMFAController> offlineMFAController_;
    std::shared_ptr<HtmlUtils> html_;

    /// Late callbacks of the web view ask whether the delegate still lives.
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

}  // namespace quorl
