#include "AppDelegate.h"
#include "CommonUtils.h"
#include "ConfigParser.h"
#include "Log.h"
#include "MFARequest.h"
#include "PortalURL.h"
#include "WindowLayout.h"

namespace quorl {

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
    const std::string path = operation == PortalOperation::mfa
                                 ? stringValue(mfaRequestParams_, "MFA_REQUEST_URL").value_or("")
                                 : std::string(selfServicePath);
    std::optional<std::string> url = portalURL(config, path);
    if (!url) {
        logLine("getURLWithOperation : Server settings not configured correctly");
        showLocalizedError("IDS_SERVER_UNREACH");
        return std::nullopt;
    }
    logLine("getURLWithOperation : URL - {}", *url);
    url_ = url;
    return url;
}

void AppDelegate::launchQuorlPortal(PortalOperation operation) {
    logLine("launchQuorlPortal called with operation - {}", operationName(operation));
    getLoginAgentParams();
    if (!customBrowserWindow_->isVisible())
        prepareBrowserWindow();
    window_->setEnabled(false);
    switch (operation) {
        case PortalOperation::errorMessage:
            showError(stringValue(mfaRequestParams_, "ERROR_MSG").value_or(""), false);
            break;
        case PortalOperation::mfaErrorMessage:
            showLocalizedError(stringValue(mfaRequestParams_, "MFA_ERROR_MSG").value_or(""));
            break;
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
    const std::string userName = stringValue(mfaRequestParams_, "USER_NAME").value_or("");
    const std::string domainName = stringValue(mfaRequestParams_, "DOMAIN_NAME").value_or("");
    logLine("Going to invoke Offline MFA for user - {} @ {}", userName, domainName);
    html_ = std::make_shared<HtmlUtils>(*webViewControl_, *customBrowserWindow_, resources_);
    offlineMFAController_ =
        std::make_shared<OfflineMFAController>(userName, domainName, html_, clock_);
    // Kept by name: a flow that ends at once closes the window, whose handler reads the controller.
    const auto controller = offlineMFAController_;
    controller->doAuthenticate();
}

void AppDelegate::loadPortalPage(PortalOperation operation) {
    const std::optional<std::string> url = getURLWithOperation(operation);
    if (!url)
        return;
    webViewControl_->loadRequest(makePageRequest(*url, mfaRequestParams_));
    webViewControl_->setAllowsBackForwardNavigationGestures(false);
}

}  // namespace quorl
