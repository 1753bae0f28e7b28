#include "AppDelegate.h"

#include "ConfigParser.h"
#include "Logger.h"
#include "ServerCommunicator.h"
#include "SystemPaths.h"
#include "WindowLayout.h"

#include <errno.h>

#include <cstdio>
#include <cstdlib>

namespace quorl {

namespace {

// A page may have set one just now.
constexpr std::chrono::seconds cookiesDeadline{2};

// In the form of assert(), which release builds leave out.
[[noreturn]] void failAssertion() {
    std::fprintf(stderr,
                 "%s: AppDelegate:23: -[AppDelegate applicationDidFinishLaunching:]: "
                 "Assertion `_window!= nil' failed.\n",
                 program_invocation_short_name);
    std::abort();
}

}  // namespace

AppDelegate::AppDelegate(const AppServices& services)
    : application_(services.application),
      ports_(services.ports),
      resources_(services.resources),
      clock_(services.clock),
      window_(application_.loginPanel()),
      customBrowserWindow_(application_.browserWindow()) {}

AppDelegate::~AppDelegate() {
    if (agentMessagingService_)
        agentMessagingService_->isServiceDone = true;
    if (relay_.joinable())
        relay_.join();
    if (appLocalPort_)
        appLocalPort_->invalidate();
    if (customBrowserWindow_)
        customBrowserWindow_->setDelegate(nullptr);
}

void AppDelegate::applicationDidFinishLaunching() {
    // An interface description without its panel is a broken installation: stop where it shows.
    if (!window_ || !customBrowserWindow_)
        failAssertion();
    logLine("QUORLLoginAgent Application launched");
    appSupportDir_ = systemPaths().supportDirectory();
    logFileP_ = openApplicationLog(ownDirectory() + "/VantorixClient.log");
    setNotificationObservers();
    initBrowser();
    application_.hideMenuBar();
    if (isTrue(getLoginAgentParams(), "SHOW_RP_UA_LINK"))
        showLoginPanel();
    else
        window_->orderOut();
    startMessaging();
    if (!application_.pagesUnavailable())
        webViewControl_->warmUp();
}

void AppDelegate::appWillTerminate() {
    logLine("QUORLLoginAgent Application terminated");
    if (application_.wantsNewStart())
        ports_.keepServiceName();
    if (agentMessagingService_)
        agentMessagingService_->isServiceDone = true;
    if (webViewControl_)
        webViewControl_->saveCookies(cookiesDeadline);
    closeApplicationLog(logFileP_);
    logFileP_ = nullptr;
    customBrowserWindow_->setDelegate(nullptr);
}

void AppDelegate::launch() {
    const ServerCommunicator communicator(clock_);
    if (!communicator.isAccessKeyExists())
        logLine("launchSelservice: Unable to get Agent access key");
    if (const auto fault = application_.pagesUnavailable()) {
        logLine("launchSelservice: no page can be shown: {}", *fault);
        return;
    }
    launchQuorlPortal(PortalOperation::selfService);
}

WebViewConfiguration AppDelegate::registerCallbackHandler() {
    return {.scriptMessageHandlerName = "MACLoginAgent", .delegate = this};
}

void AppDelegate::setNotificationObservers() {
    application_.setWillTerminateHandler([this] { appWillTerminate(); });
    application_.setLinkAction([this] { launch(); });
    application_.setAtRestTest([this] { return !shown_ && !request_.isAnswerOwed(); });
    webViewControl_ = application_.makeWebView(registerCallbackHandler());
    errorPage_.emplace(*webViewControl_);
    customBrowserWindow_->setDelegate(this);
}

void AppDelegate::showLoginPanel() {
    window_->showAt(layout::panelFrame(window_->screenSize(), window_->frame().size.height));
}

void AppDelegate::startMessaging() {
    SendRightPtr sendRight;
    appLocalPort_ = ports_.makePort();
    if (appLocalPort_) {
        appLocalPort_->setHandler(
            [this](PortMessage message) { handlePortMessage(std::move(message)); });
        appLocalPort_->addToRunLoop(application_.mainRunLoop());
        sendRight = appLocalPort_->sendRight();
    }
    agentMessagingService_ = std::make_unique<AgentMessagingService>(ports_);
    relay_ = std::thread(
        [service = agentMessagingService_.get(), sendRight] { service->run(sendRight); });
}

}  // namespace quorl
