#include "AppDelegate.h"
#include "ConfigParser.h"
#include "Localization.h"
#include "Log.h"

namespace quorl {

void AppDelegate::showError(const std::string& text, bool reload) {
    errorPage_->show(text, reload);
    customBrowserWindow_->setTitle(configText(getLoginAgentParams(), "PRODTITLE"));
}

void AppDelegate::showLocalizedError(std::string_view key) {
    showError(getLocalizedString(key, configText(getLoginAgentParams(), "LOCALE_ID"), resources_),
              false);
}

void AppDelegate::renderErrorPage() {
    logLine("showError going to show... {}", errorPage_->text());
    std::string retryURL;
    if (errorPage_->offersReload())
        retryURL = getURLWithOperation(PortalOperation::selfService).value_or("");
    errorPage_->draw(retryURL);
}

}  // namespace quorl
