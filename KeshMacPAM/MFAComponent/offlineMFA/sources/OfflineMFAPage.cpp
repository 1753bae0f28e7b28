#include "OfflineMFAPage.h"

#include "ConfigParser.h"
#include "Localization.h"
#include "Log.h"

namespace quorl {
namespace {

constexpr std::chrono::minutes sessionTime{2};

constexpr const char* staticTextKeys[] = {
    "IDS_MFA_OFFLINE_HTML_T1",
    "IDS_MFA_OFFLINE_HTML_T4",
    "IDS_MFA_OFFLINE_HTML_T5",
    "IDS_MFA_OFFLINE_HTML_T6",
    "IDS_MFA_OFFLINE_HTML_BUTTON_CANCEL",
    "IDS_MFA_OFFLINE_HTML_BUTTON_CONTINUE",
    "IDS_MFA_OFFLINE_HTML_BUTTON_NEXT",
    "IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP2",
    "IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP1",
    "IDS_MFA_OFFLINE_LIMIT_RESET_MSG",
};

}  // namespace

OfflineMFAPage::OfflineMFAPage(std::shared_ptr<HtmlUtils> html, const Value& config)
    : html_(std::move(html)), config_(config) {}

std::string OfflineMFAPage::localized(std::string_view key) const {
    return getLocalizedString(key, configText(config_, "LOCALE_ID"));
}

void OfflineMFAPage::load() {
    html_->loadFromResource("resources/offlineMFA/OfflineMFA", "htm");
}

void OfflineMFAPage::fill(const OfflineView& view) {
    logLine("MFAController:: didFinishNavigation : loading offline related content into html page");
    html_->putInnerHtml("USERNAME", view.userName);
    html_->putInnerHtml("DOMAINNAME", "(" + view.domainName + ")");
    const std::string timer =
        timerScript(sessionTime.count(), localized("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP1"),
                    localized("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP2"));
    std::string focus;
    switch (view.tab) {
        case OfflineView::Tab::verify:
            focus = fillVerifyView(view, timer);
            break;
        case OfflineView::Tab::choose:
            fillChooseView(view.choices);
            html_->executeScript(timer);
            html_->removeAttribute("CHOOSETAB", "class");
            break;
        case OfflineView::Tab::none:
            break;
    }
    if (view.logoPath)
        html_->setSrcAttribute("PRODUCTLOGO", *view.logoPath);
    html_->executeScript(focus);
    const std::string help = configText(config_, "HELP_TEXT");
    if (!help.empty())
        html_->executeScript(helpScript(localized("IDS_HELP_LABEL"), help));
    fillStaticTexts();
}

std::string OfflineMFAPage::fillVerifyView(const OfflineView& view, std::string timer) {
    if (const auto& limit = view.limit) {
        html_->putInnerHtml("LIMIT_TYPE",
                            limit->labelKey.empty() ? "" : localized(limit->labelKey));
        html_->removeAttribute("SHOW_LIMIT", "class");
        html_->putInnerHtml("LIMIT_VALUE", std::to_string(limit->remaining));
        if (limit->low)
            timer += limitWarningScript();
    }
    const TOTPAuthenticator* authenticator = view.authenticator;
    html_->putInnerHtml("T2", replaceAll(localized("IDS_MFA_OFFLINE_HTML_T2"), "%TYPE%",
                                         authenticator ? authenticator->getAuthName() : ""));
    html_->removeAttribute("AUTHTAB", "class");
    html_->executeScript(timer);
    const std::string serialNumber =
        authenticator ? authenticator->hardwareTokenSerialNumber().value_or("") : "";
    html_->putInnerHtml("T3",
                        serialNumber.empty()
                            ? localized("IDS_MFA_OFFLINE_HTML_T3")
                            : replaceAll(localized("IDS_MFA_OFFLINE_HTML_HARDWARE_TOKEN_DESC"),
                                         "%SERIAL_NUMBER%", serialNumber));
    if (!view.takesCodes)
        return "";
    return focusScript(authenticator ? authenticator->getDigits() : 0);
}

void OfflineMFAPage::fillChooseView(const std::vector<OfflineView::Choice>& choices) {
    RowPlace place = RowPlace::first;
    for (const auto& [authId, name] : choices) {
        html_->insertAdjacentHTML("RADIOGROUP", "beforeEnd", chooseRow(name, authId, place));
        place = RowPlace::later;
    }
}

void OfflineMFAPage::fillStaticTexts() {
    Value texts = Value::object();
    for (const char* key : staticTextKeys)
        texts[key] = localized(key);
    html_->executeScript(staticTextsScript(texts));
}

void OfflineMFAPage::showError(const std::string& text) {
    html_->setValueAttribute("PASSCODE", "");
    html_->putInnerHtml("ALERTDATA", text);
    html_->removeAttribute("ALERT", "class");
}

std::string OfflineMFAPage::wrongCodeText() const {
    return localized("IDS_MFA_OFFLINE_ERRORMSG_OTP");
}

}  // namespace quorl
