#include "Log.h"
#include "OfflineMFAController.h"

#include <cstdlib>
#include <limits>

namespace quorl {

void OfflineMFAController::onButtonOK(const std::optional<std::string>& code) {
    logLine("MFAController:: OnButtonOK invoked..");
    if (currentTab_ != Tab::verify) {
        checkFactors();
        return;
    }
    if (!isTOTP(currentauthId_)) {
        showError("");
        return;
    }
    if (!code || code->empty()) {
        logLine("MFAController::OnButtonOK : Entered OTP is empty");
        showError(localized("IDS_MFA_OFFLINE_ERRORMSG_OTP"));
        return;
    }
    const TOTPAuthenticator* authenticator = currentAuthenticator();
    if (!authenticator || !authenticator->verifyTOTP(Value{{"AUTH_CODE", *code}})) {
        logLine("MFAController::OnButtonOK : Entered OTP is invalid");
        showError(localized("IDS_MFA_OFFLINE_ERRORMSG_OTP"));
        return;
    }
    // A record may hold the smallest of all numbers.
    if (noOfFactors_ != std::numeric_limits<std::int64_t>::min())
        --noOfFactors_;
    checkFactors();
}

void OfflineMFAController::showError(const std::string& text) {
    html_->setValueAttribute("PASSCODE", "");
    html_->putInnerHtml("ALERTDATA", text);
    html_->removeAttribute("ALERT", "class");
}

void OfflineMFAController::checkFactors() {
    if (noOfFactors_ != 0) {
        performOfflineAuth();
        return;
    }
    isMFAVerified_ = true;
    logLine("MFAController::OnButtonOK : User successfully completed Offline MFA");
    html_->closeWindow();
}

void OfflineMFAController::onButtonChoose() {
    if (currentTab_ != Tab::choose)
        return;
    html_->radioSelected("auth",
                         [self = shared_from_this()](const std::optional<std::string>& value) {
                             self->chooseAuthenticator(value);
                         });
}

void OfflineMFAController::chooseAuthenticator(const std::optional<std::string>& value) {
    if (!value) {
        logLine("onButtonChoose :: Error getting auth value");
        return;
    }
    logLine("onButtonChoose :: Selected auth value: {}", *value);
    currentTab_ = Tab::verify;
    // Text that is no number reads as 0.
    currentauthId_ = std::strtoll(value->c_str(), nullptr, 10);
    std::erase(optionalAuths_, currentauthId_);
    logLine("MFAController::OnButtonChoose : User choosing authenticator id is {}", currentauthId_);
    loadPage();
}

}  // namespace quorl
