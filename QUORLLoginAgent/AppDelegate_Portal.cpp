#include "AppDelegate.h"
#include "CommonUtils.h"
#include "ConfigParser.h"
#include "Log.h"
#include "MFARequest.h"
#include "PortalURL.h"
#include "Redaction.h"
#include "WindowLayout.h"
#include "Wipe.h"

namespace quorl {
namespace {

// Whoever opened the self-service page may have walked away from it, logged in.
constexpr std::chrono::minutes idleLimit{5};

// A window that is to explain something is never empty.
std::string textOrKey(const Value& request, const char* key) {
    std::string text = stringValue(request, key).value_or("");
    return text.empty() ? key : text;
}

}  // namespace

std::string AppDelegate::appName() const {
    return "QUORLLoginAgent";
}

const Value& AppDelegate::getLoginAgentParams() {
    if (!loginAgentProps_)
        loginAgentProps_ = &getProductConfig(appSupportDir_ + "/config.plist");
    return *loginAgentProps_;
}

std::optional<std::string> AppDelegate::getURLWithOperation(PortalOperation operation) {
    if (operation != PortalOperation::mfa) {
        setEnvironmentalDetails();
        logLine("getURLWithOperation : Machine name - {}, Domain name - {}", machine_.machineName,
                machine_.domainName);
        if (machine_.machineName.value_or("").empty() || machine_.domainName.value_or("").empty())
            machine_.machineName = machine_.domainName = "";
    }
    const Value& config = getLoginAgentParams();
    logLine("getURLWithOperation : AppName - {}, AppVersion - {}", appName(),
            configText(config, "VERSION"));
    const std::string path =
        operation == PortalOperation::mfa
            ? stringValue(request_.parameters(), "MFA_REQUEST_URL").value_or("")
            : std::string(selfServicePath);
    std::optional<std::string> url = portalURL(config, path);
    if (!url) {
        logLine("getURLWithOperation : Server settings not configured correctly");
        showLocalizedError(ErrorKind::notConfigured);
        return std::nullopt;
    }
    logLine("getURLWithOperation : URL - {}", redactedAddress(*url));
    return url;
}

void AppDelegate::launchQuorlPortal(PortalOperation operation) {
    logLine("launchQuorlPortal called with operation - {}", operationName(operation));
    getLoginAgentParams();
    endOfflinePage();
    if (!customBrowserWindow_->isVisible())
        prepareBrowserWindow();
    window_->setEnabled(false);
    shown_ = operation;
    // A process for the page may have to start first, which tells nothing.
    showLoading();
    customBrowserWindow_->setIdleLimit(
        operation == PortalOperation::selfService ? std::optional(idleLimit) : std::nullopt);
    switch (operation) {
        case PortalOperation::errorMessage:
            showError(ErrorKind::message, textOrKey(request_.parameters(), "ERROR_MSG"), false);
            break;
        case PortalOperation::mfaErrorMessage: {
            const std::string key = textOrKey(request_.parameters(), "MFA_ERROR_MSG");
            showLocalizedError(errorKindOfText(key), key);
            break;
        }
        case PortalOperation::offlineMFA:
            startOfflineMFA();
            break;
        case PortalOperation::mfa:
        case PortalOperation::selfService:
            loadPortalPage(operation);
            break;
    }
}

void AppDelegate::prepareBrowserWindow() {
    customBrowserWindow_->prepareForLoginWindow();
    customBrowserWindow_->setFrame(layout::browserFrame(window_->screenSize()));
    customBrowserWindow_->center();
    layOutBrowserWindow();
    customBrowserWindow_->orderFrontRegardless();
    customBrowserWindow_->makeKeyWindow();
}

void AppDelegate::layOutBrowserWindow() {
    const Size size = customBrowserWindow_->frame().size;
    customBrowserWindow_->layOut(layout::progressFrame(size), layout::webViewFrame(size));
}

void AppDelegate::startOfflineMFA() {
    const std::string userName = stringValue(request_.parameters(), "USER_NAME").value_or("");
    const std::string domainName = stringValue(request_.parameters(), "DOMAIN_NAME").value_or("");
    logLine("Going to invoke Offline MFA for user - {} @ {}", userName, domainName);
    html_ = std::make_shared<HtmlUtils>(*webViewControl_, *customBrowserWindow_, resources_);
    offlineMFAController_ =
        std::make_shared<OfflineMFAController>(userName, domainName, html_, clock_);
    // Kept by name: a flow that ends at once closes the window, whose handler reads the controller.
    const auto controller = offlineMFAController_;
    controller->doAuthenticate();
}

// The controller is kept, since whether it has verified somebody is asked later on; but it may be
// waiting for its page's word, and must not act in a window that shows something else by then.
void AppDelegate::endOfflinePage() {
    if (html_)
        html_->detach();
}

void AppDelegate::loadPortalPage(PortalOperation operation) {
    const std::optional<std::string> url = getURLWithOperation(operation);
    if (!url)
        return;
    PageRequest page = makePageRequest(*url, request_.parameters());
    webViewControl_->loadRequest(page);
    webViewControl_->setAllowsBackForwardNavigationGestures(false);
    if (page.body)
        wipe(*page.body);
    for (auto& [name, value] : page.headers)
        wipe(value);
}

}  // namespace quorl
