#include "AppDelegate.h"
#include "ConfigParser.h"
#include "ErrorFrame.h"
#include "Localization.h"
#include "Log.h"

namespace quorl {

void AppDelegate::showError(ErrorKind kind, const std::string& text, bool reload) {
    errorPage_->show(kind, text, reload);
    customBrowserWindow_->setTitle(configText(getLoginAgentParams(), "PRODTITLE"));
}

void AppDelegate::showLocalizedError(ErrorKind kind, std::string_view key) {
    showError(kind, localized(key), false);
}

void AppDelegate::showLocalizedError(ErrorKind kind) {
    showLocalizedError(kind, errorWords(kind).message);
}

void AppDelegate::renderErrorPage() {
    logLine("showError going to show... {}", errorPage_->text());
    std::string retryURL;
    if (errorPage_->offersReload())
        retryURL = getURLWithOperation(PortalOperation::selfService).value_or("");
    const Value& config = getLoginAgentParams();
    errorPage_->draw(retryURL,
                     errorFrameScript({.kind = errorPage_->kind(),
                                       .offersRetry = mayRetry(),
                                       .localeId = configText(config, "LOCALE_ID"),
                                       .help = configText(config, "HELP_TEXT")},
                                      resources_),
                     // The page itself may not: markup in the message could speak there.
                     [this](const std::string& words) { customBrowserWindow_->announce(words); });
}

bool AppDelegate::mayRetry() const {
    if (!shown_ || !errorWords(errorPage_->kind()).retryHelps)
        return false;
    switch (*shown_) {
        case PortalOperation::selfService:
            return true;
        case PortalOperation::mfa:
        case PortalOperation::offlineMFA:
            return request_.isAnswerOwed();
        case PortalOperation::mfaErrorMessage:
        case PortalOperation::errorMessage:
            return false;
    }
    return false;
}

bool AppDelegate::followOwnLink(const std::string& url) {
    const bool retries = url == OwnLink::retry;
    if (!errorPage_->isDrawn() || !(retries || url == OwnLink::close))
        return false;
    if (!retries)
        customBrowserWindow_->close();
    else if (mayRetry())
        launchQuorlPortal(*shown_);
    return true;
}

std::string AppDelegate::localized(std::string_view key) {
    return getLocalizedString(key, configText(getLoginAgentParams(), "LOCALE_ID"), resources_);
}

}  // namespace quorl
