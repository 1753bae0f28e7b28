#include "OfflineMFAController.h"

#include "ConfigParser.h"
#include "Log.h"
#include "OfflineDataHandler.h"
#include "OfflineRecord.h"
#include "SystemPaths.h"

#include <chrono>
#include <filesystem>

namespace quorl {
namespace {

constexpr std::int64_t noUsableEnrollment = 2;

}  // namespace

OfflineMFAController::OfflineMFAController(std::string userName, std::string domainName,
                                           std::shared_ptr<HtmlUtils> html, const Clock& clock)
    : configDetails_(getProductConfig(getConfigFilePath())),
      userName_(std::move(userName)),
      domainName_(std::move(domainName)),
      offlineUserName_(userName_ + "@" + domainName_),
      accessKey_(configText(configDetails_, "ACCESS_KEY")),
      isOfflineMFA_(isTrue(configDetails_, "OFFLINE_MFA")),
      mIsLogoExists_(isLogoExists(stringValue(configDetails_, "OFFLINE_WEB_LOGO_NAME"))),
      html_(std::move(html)),
      page_(html_, configDetails_),
      clock_(clock) {
    logLine("OfflineMFAController:: Successfully initialized offline MFA related data");
}

bool OfflineMFAController::isLogoExists(const std::optional<std::string>& name) {
    if (!name)
        return false;
    // The doubled slash is how the path is built everywhere.
    logoPath_ = systemPaths().supportDirectory() + "/" + *name;
    logLine("MFAController::isLogoExists ::custom logo path is {}", logoPath_);
    std::error_code error;
    if (std::filesystem::exists(logoPath_, error)) {
        logLine("MFAController::checkLogoExists : Loading Custom Logo image");
        return true;
    }
    logLine("MFAController::isLogoExists : No customized Logo file found\n");
    return false;
}

void OfflineMFAController::doAuthenticate() {
    logLine("Performing offline MFA for user: {}", offlineUserName_);
    if (isOfflineMFA_ && getOfflineData()) {
        logLine("OfflineMFAController::doAuthenticate : Loading Offline MFA Page....");
        performOfflineAuth();
        return;
    }
    logLine(
        "MFAController::doAuthenticate : Offline MFA not enabled or User not enrolled for offline");
    offlineErrorCode_ = noUsableEnrollment;
    html_->closeWindow();
}

bool OfflineMFAController::getOfflineData() {
    const std::optional<Value> stored = OfflineDataHandler::getOfflineData(offlineUserName_);
    if (!stored || !stored->is_object()) {
        logLine(
            "OfflineMFAController :: getOfflineData :: User policy data not found / user not "
            "enrolled ");
        return false;
    }
    const auto parts = RecordParts::of(*stored);
    if (!parts) {
        logLine(
            "OfflineMFAController :: getOfflineData :: User policy data not found /User auth data "
            "not found");
        return false;
    }
    logLine("OfflineMFAController::getOfflineData : Successfully got Offline enrollment data");
    const auto record = OfflineRecord::read(*parts);
    auto methods = record ? offlineMethods(*record, accessKey_, clock_) : std::nullopt;
    if (!methods)
        return false;
    limits_ = record->limits;
    steps_ = FactorSteps(record->noOfFactors, methods->ids);
    methods_ = std::move(*methods);
    return true;
}

void OfflineMFAController::performOfflineAuth() {
    logLine("OfflineMFAController::performOfflineAuth : Going to perform offline MFA...");
    switch (steps_.next()) {
        case FactorSteps::Next::mandatory:
            currentTab_ = OfflineView::Tab::verify;
            logLine("OfflineMFAController::performOfflineAuth : Current authenticator id is {}",
                    steps_.current());
            break;
        case FactorSteps::Next::choice:
            logLine("OfflineMFAController::performOfflineAuth : Redirecting to Choose Page");
            currentTab_ = OfflineView::Tab::choose;
            break;
        case FactorSteps::Next::optional:
            currentTab_ = OfflineView::Tab::verify;
            logLine("OfflineMFAController::performOfflineAuth : Current authenticator id is {} ",
                    steps_.current());
            break;
    }
    page_.load();
}

void OfflineMFAController::didFinishNavigation() {
    OfflineView view;
    view.tab = currentTab_;
    view.userName = userName_;
    view.domainName = domainName_;
    if (mIsLogoExists_)
        view.logoPath = logoPath_;
    view.authenticator = methods_.find(steps_.current());
    view.takesCodes = isTOTP(steps_.current());
    const auto now = std::chrono::floor<std::chrono::seconds>(clock_.now()).time_since_epoch();
    if (limits_.type != limitNone)
        view.limit = limits_.notice(now);
    for (const std::int64_t authId : steps_.choices()) {
        const TOTPAuthenticator* found = methods_.find(authId);
        view.choices.push_back({authId, found ? found->getAuthName() : ""});
    }
    page_.fill(view);
}

}  // namespace quorl
