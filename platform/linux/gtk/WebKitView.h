#pragma once

#include "CookieJar.h"
#include "GlibSupport.h"
#include "GtkBrowserWindow.h"
#include "LoadTracker.h"
#include "Lockdown.h"
#include "ReadablePage.h"
#include "SessionState.h"
#include "WebKitEngine.h"
#include "WebView.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// The web view on WebKitGTK. The engine's processes start when they are told to warm up, or at the
/// first load.
///
/// No page is trusted to let go: where one has been, the next load of ours gets a fresh view with a
/// fresh process, and the old one is ended, so that nothing of it can delay, replace or answer what
/// comes after. clear() renews the session with its cookies and stored data, too.
class WebKitView final : public WebView {
  public:
    struct Surroundings {
        GtkBrowserWindow* window = nullptr;  ///< shows the view; outlives it
        std::string supportDirectory;        ///< where lasting cookies are kept
    };

    WebKitView(WebViewConfiguration configuration, Surroundings surroundings);
    ~WebKitView() override;
    WebKitView(const WebKitView&) = delete;
    WebKitView& operator=(const WebKitView&) = delete;

    void loadRequest(const PageRequest& request) override;
    void loadFile(const std::string& path) override;
    void stopLoading() override;
    void clear() override;
    void warmUp() override;
    bool saveCookies(std::chrono::milliseconds limit) override;
    void evaluateJavaScript(const std::string& script, ScriptCompletion completion) override;
    void addUserScript(const std::string& source) override;
    void getAllCookies(CookiesCompletion completion) override;
    void deleteCookie(const Cookie& cookie, std::function<void()> completion) override;
    void setAllowsBackForwardNavigationGestures(bool allowed) override;
    void setNeedsDisplay() override;

  private:
    // Loading (WebKitView_Loading.cpp)
    enum class Renewal { none, view, session };

    void load(PageRequest request);
    void proceed();
    void begin();
    void loadForm();
    void restoreForm();
    bool restore(const HistoryPage& page, LoadTracker::Purpose purpose);
    void submitForm(const std::string& contentType);
    std::string sealedHeaders() const;
    void afterCookies(std::function<void()> step);
    void restoreCookies(std::function<void()> done);
    void failLater(LoadError error);

    // A fresh view or session (WebKitView_Renewal.cpp)
    void require(Renewal renewal);
    void renew();
    void finishRenewal();
    void warmNow();
    void loadWarmPage();

    // What the engine tells (WebKitView_Events.cpp)
    gboolean decidePolicy(WebKitPolicyDecision* decision, WebKitPolicyDecisionType type);
    void decideNavigation(WebKitPolicyDecision* decision);
    void answer(WebKitPolicyDecision* decision, bool allowed);
    void decideResponse(WebKitPolicyDecision* decision);
    void loadChanged(WebKitLoadEvent event);
    gboolean loadFailed(WebKitLoadEvent event, const char* url, GError* error);
    gboolean certificateRefused(const char* url, GTlsCertificate* certificate,
                                GTlsCertificateFlags faults);
    void progressChanged(GParamSpec*);
    void processTerminated(WebKitWebProcessTerminationReason reason);
    gboolean focusArrives(GtkDirectionType direction);
    gboolean drawn(cairo_t*);
    void tellFocus();
    void messageReceived(WebKitJavascriptResult* result);
    void announcementReceived(WebKitJavascriptResult* result);
    void deliver(LoadTracker::Report report, const LoadError& error);
    void explainCancellation();
    void giveUp(LoadError error);
    void bytesArrived();
    void startTimer(std::chrono::seconds limit);
    void timeIsUp();
    bool isForeign(WebKitNavigationAction* action, const std::string& url) const;

    void startEngine();
    void connectView();
    void disconnectView();
    void installUserScript(const std::string& source);
    void runSoon(std::function<void()> action);
    WebViewDelegate& delegate() const { return *configuration_.delegate; }
    std::string currentURL() const;

    WebViewConfiguration configuration_;
    Surroundings surroundings_;
    std::vector<std::string> userScripts_;
    std::optional<WebKitEngine> engine_;
    std::optional<Lockdown> lockdown_;
    std::optional<ReadablePage> readable_;
    std::optional<CookieJar> cookies_;
    bool cookiesRestored_ = false;
    bool savingCookies_ = false;
    bool renewalHeldBack_ = false;

    Renewal due_ = Renewal::none;  ///< to be done before anything is loaded; the view is dead
    bool renewing_ = false;        ///< and being done
    bool used_ = false;            ///< a load was asked for in this session
    bool pageLives_ = false;       ///< a page of others has been in this view
    bool loadWaits_ = false;       ///< for the renewal
    OneShotTimer renewalLimit_;
    GlibSource warming_;

    PageRequest request_;      ///< the load that was asked for last
    unsigned generation_ = 0;  ///< counts those, so that late steps of an older one end
    LoadTracker tracker_;
    std::string committedURL_;
    bool timedOut_ = false;
    std::chrono::steady_clock::time_point startedAt_;
    bool handshakeCancelled_ = false;    ///< the engine broke off, not a page
    bool certificateSuspected_ = false;  ///< and it was over the certificate
    int handshakes_ = 0;                 ///< attempts that ended so
    static constexpr int handshakeAttempts = 3;
    bool diedSinceCommit_ = false;
    std::chrono::seconds limit_{};  ///< of the timer
    OneShotTimer timer_;
    OneShotTimer hanging_;
    OneShotTimer unexplained_;

    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    SignalConnections signals_;
};

}  // namespace quorl
