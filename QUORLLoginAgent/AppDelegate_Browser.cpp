#include "AppDelegate.h"
#include "CertificateSettings.h"
#include "ConfigParser.h"
#include "Localization.h"
#include "Log.h"
#include "MFARequest.h"
#include "NavigationPolicy.h"
#include "PageScripts.h"
#include "Redaction.h"
#include "WindowLayout.h"

#include <filesystem>

namespace quorl {
namespace {

constexpr double linkTextRise = 20;
// Components are given unscaled; the screen clamps them, which makes the text white.
constexpr Color linkTextColor{170, 170, 170, 1.0};

std::optional<std::string> existingFile(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(path, error) ? std::optional(path) : std::nullopt;
}

}  // namespace

bool allowAnyHttps = false;

void AppDelegate::initBrowser() {
    const Value& config = getLoginAgentParams();
    warnOfUncheckedCertificates(config);
    customBrowserWindow_->setTitle(configText(config, "PRODTITLE"));
    waitingWords_ = localized("IDS_STILL_WAITING");
    const std::string language = localizationName(configText(config, "LOCALE_ID"), resources_);
    application_.setWords({.panelTitle = localized("IDS_PANEL_TITLE"),
                           .close = localized("IDS_MFA_OFFLINE_HTML_T6"),
                           .maximize = localized("IDS_MAXIMIZE"),
                           .rightToLeft = runsRightToLeft(language)});

    // Told once, here: it is loaded whatever the list says, since every refusal ends on it.
    if (decideNavigation(blankPage, config) == NavigationDecision::cancel)
        logLine("initBrowser : MAC_AGENT_HOST_EXCLUDE lacks {}, which the agent itself opens",
                blankPage);

    const std::string imagePath = configText(config, "IMAGEPATH");
    auto image = existingFile(appSupportDir_ + "/" + imagePath);
    if (!image)
        image = existingFile(imagePath);
    if (!image)
        image = resources_.pathForResource("reset_icon", "png");
    if (!image || !window_->setButtonImage(*image))
        logLine("initBrowser : no image for the link could be loaded");

    const std::string buttonText =
        isConfigured("BUTTONTEXT") ? configText(config, "BUTTONTEXT") : localized("IDS_PANEL_LINK");
    if (!buttonText.empty()) {
        window_->setButtonText(buttonText);
        const Point origin = window_->buttonTextFrame().origin;
        window_->setButtonTextOrigin({origin.x, origin.y + linkTextRise});
        window_->setButtonTextColor(linkTextColor);
    }
    allowAnyHttps = pageCertificatePolicy(config) == CertificatePolicy::allowAny;
}

NavigationDecision AppDelegate::decidePolicyForNavigationAction(const std::string& url) {
    logLine("decidePolicyForNavigationAction: {}", redactedAddress(url));
    if (errorPage_->isOwnLoad(url))
        return NavigationDecision::allow;
    if (followOwnLink(url))
        return NavigationDecision::cancel;
    const NavigationDecision decision = decideNavigation(url, getLoginAgentParams());
    if (decision == NavigationDecision::cancel) {
        logLine("decidePolicyForNavigationAction: External URL access is denied. URL hostname: {}",
                redactedAddress(url));
        showError(ErrorKind::foreignPage,
                  "External URL is denied. Please contact the administrator.", false);
    }
    return decision;
}

void AppDelegate::showLoading() {
    customBrowserWindow_->setProgressHidden(false);
    customBrowserWindow_->awaitPage(waitingWords_);
}

void AppDelegate::didStartProvisionalNavigation() {
    showLoading();
}

void AppDelegate::didCommitNavigation() {
    errorPage_->didLeave();
    customBrowserWindow_->awaitPage("");
    handleFileInjection(PageEvent::navigateComplete);
    // Applies from the next page on; the copies that gather are harmless.
    webViewControl_->addUserScript(std::string(noPlatformAuthenticatorScript));
}

void AppDelegate::didFinishNavigation(const std::string& url) {
    logLine("didFinishNavigation :: navigation completed...");
    errorPage_->didLoad(url);
    if (url == blankPage) {
        if (errorPage_->hasText())
            renderErrorPage();
    } else {
        handleFileInjection(PageEvent::documentComplete);
        webViewControl_->evaluateJavaScript(std::string(noContextMenuScript), nullptr);
        if (isOfflineMFA_ && offlineMFAController_ && !offlineMFAController_->getIsMFAVerified() &&
            isFileURL(url)) {
            logLine("didFinishNavigation :: Going to invoke didFinishNavigation for Offline...");
            offlineMFAController_->didFinishNavigation();
        }
    }
    customBrowserWindow_->setProgressHidden(true);
}

void AppDelegate::didFailNavigation(const LoadError& error) {
    logLine("didFailLoadWithError: {}", error.code);
}

void AppDelegate::didFailProvisionalNavigation(const LoadError& error) {
    logLine("didFailProvisionalLoadWithError: {}", error.description);
    customBrowserWindow_->awaitPage("");
    if (error.code != LoadErrorCode::cancelled)
        showLocalizedError(errorKindOfLoad(error.code));
}

ChallengeAnswer AppDelegate::didReceiveAuthenticationChallenge(AuthenticationMethod method) {
    if (method == AuthenticationMethod::serverTrust && allowAnyHttps)
        return ChallengeAnswer::useCredential;
    return ChallengeAnswer::performDefaultHandling;
}

void AppDelegate::estimatedProgressChanged(double progress) {
    const double value = progress * 100;
    // A new load that starts below the last value first drops the bar to zero.
    customBrowserWindow_->setProgress(value < customBrowserWindow_->progress() ? 0 : value);
}

void AppDelegate::webContentProcessDidTerminate() {
    logLine("webContentProcessDidTerminate : the process that draws the page has ended");
    showLocalizedError(ErrorKind::pageDied);
}

void AppDelegate::handleFileInjection(PageEvent event) {
    logLine("handleFileInjection started for {}", eventName(event));
    webViewControl_->evaluateJavaScript(fileInjectionScript(event), nullptr);
}

void AppDelegate::windowDidResize() {
    if (customBrowserWindow_->isVisible())
        layOutBrowserWindow();
}

void AppDelegate::windowWillClose() {
    logLine("customBrowserWillClose : Received customBrowserWillClose notification...");
    if (!request_.isAnswerOwed()) {
        clearBrowserPortal();
        return;
    }
    const bool verified =
        isOfflineMFA_ && offlineMFAController_ && offlineMFAController_->getIsMFAVerified();
    sendMFAResponse(closedWindowResult(verified));
}

void AppDelegate::windowWasIdle() {
    logLine("windowWasIdle : nobody uses the window, it is closed");
    customBrowserWindow_->close();
}

void AppDelegate::hideBrowserPortal() {
    customBrowserWindow_->orderOut();
    clearBrowserPortal();
}

void AppDelegate::clearBrowserPortal() {
    customBrowserWindow_->setIdleLimit(std::nullopt);
    customBrowserWindow_->awaitPage("");
    endOfflinePage();
    window_->setEnabled(true);
    clearCookies();
    errorPage_->clear();
    webViewControl_->clear();
    shown_.reset();
}

void AppDelegate::clearCookies() {
    webViewControl_->getAllCookies(
        [this, alive = std::weak_ptr(alive_)](const std::vector<Cookie>& cookies) {
            if (alive.expired())
                return;
            for (const Cookie& cookie : cookies) {
                if (!cookie.sessionOnly)
                    continue;
                webViewControl_->deleteCookie(
                    cookie, [name = cookie.name] { logLine("Deleted cookie: {}", name); });
            }
        });
}

}  // namespace quorl
