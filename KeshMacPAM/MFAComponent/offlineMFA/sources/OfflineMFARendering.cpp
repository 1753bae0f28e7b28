#include "CommonUtils.h"
#include "ConfigParser.h"
#include "Log.h"
#include "OfflineMFAController.h"
#include "OfflinePageScripts.h"

#include <chrono>

namespace quorl {
namespace {

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

std::string OfflineMFAController::localized(std::string_view key) const {
    return getLocalizedString(key, configText(configDetails_, "LOCALE_ID"));
}

void OfflineMFAController::didFinishNavigation() {
    logLine("MFAController:: didFinishNavigation : loading offline related content into html page");
    html_->putInnerHtml("USERNAME", userName_);
    html_->putInnerHtml("DOMAINNAME", "(" + domainName_ + ")");
    const std::string timer =
        timerScript(sessionTime_, localized("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP1"),
                    localized("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP2"));
    std::string focus;
    switch (currentTab_) {
        case Tab::verify:
            focus = showVerifyView(timer);
            break;
        case Tab::choose:
            chooseVerify();
            html_->executeScript(timer);
            html_->removeAttribute("CHOOSETAB", "class");
            break;
        case Tab::none:
            break;
    }
    if (mIsLogoExists_)
        html_->setSrcAttribute("PRODUCTLOGO", logoPath_);
    html_->executeScript(focus);
    loadOfflineMFAResources();
}

std::string OfflineMFAController::showVerifyView(std::string timer) {
    const TOTPAuthenticator* authenticator = currentAuthenticator();
    if (limitType_ != 0 && showLimit())
        timer += limitWarningScript();
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
    if (!isTOTP(currentauthId_))
        return "";
    return focusScript(authenticator ? authenticator->getDigits() : 0);
}

bool OfflineMFAController::showLimit() {
    const auto now = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::milliseconds(getCurrentTimeInMillis(clock_)));
    const LimitNotice notice = limitNotice({.type = limitType_,
                                            .limit = limit_,
                                            .validUserAttempts = validUserAttempts_,
                                            .lastOnlineMfaTime = lastOnlineMfaTime_},
                                           now);
    html_->putInnerHtml("LIMIT_TYPE", notice.labelKey.empty() ? "" : localized(notice.labelKey));
    html_->removeAttribute("SHOW_LIMIT", "class");
    html_->putInnerHtml("LIMIT_VALUE", std::to_string(notice.remaining));
    return notice.low;
}

void OfflineMFAController::chooseVerify() {
    RowPlace place = RowPlace::first;
    for (const std::int64_t authId : optionalAuths_) {
        const auto found = authList_.find(authId);
        const std::string name = found == authList_.end() ? "" : found->second.getAuthName();
        html_->insertAdjacentHTML("RADIOGROUP", "beforeEnd", chooseRow(name, authId, place));
        place = RowPlace::later;
    }
}

void OfflineMFAController::loadOfflineMFAResources() {
    Value texts = Value::object();
    for (const char* key : staticTextKeys)
        texts[key] = localized(key);
    html_->executeScript(staticTextsScript(texts));
}

}  // namespace quorl
