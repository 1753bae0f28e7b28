#include "Log.h"
#include "OfflineMFAController.h"

#include <cstdlib>

namespace quorl {

void OfflineMFAController::onButtonOK(const std::optional<std::string>& code) {
    logLine("MFAController:: OnButtonOK invoked..");
    if (currentTab_ != OfflineView::Tab::verify) {
        checkFactors();
        return;
    }
    if (!isTOTP(steps_.current())) {
        page_.showError("");
        return;
    }
    if (!code || code->empty()) {
        logLine("MFAController::OnButtonOK : Entered OTP is empty");
        page_.showError(page_.wrongCodeText());
        return;
    }
    const TOTPAuthenticator* authenticator = methods_.find(steps_.current());
    if (!authenticator || !authenticator->verifyTOTP(Value{{"AUTH_CODE", *code}})) {
        logLine("MFAController::OnButtonOK : Entered OTP is invalid");
        page_.showError(page_.wrongCodeText());
        return;
    }
    steps_.countVerified();
    checkFactors();
}

void OfflineMFAController::checkFactors() {
    if (!steps_.done()) {
        performOfflineAuth();
        return;
    }
    isMFAVerified_ = true;
    logLine("MFAController::OnButtonOK : User successfully completed Offline MFA");
    html_->closeWindow();
}

void OfflineMFAController::onButtonChoose() {
    if (currentTab_ != OfflineView::Tab::choose)
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
    currentTab_ = OfflineView::Tab::verify;
    // Text that is no number reads as 0.
    steps_.choose(std::strtoll(value->c_str(), nullptr, 10));
    logLine("MFAController::OnButtonChoose : User choosing authenticator id is {}",
            steps_.current());
    page_.load();
}

}  // namespace quorl
