#include "OfflineMFAController.h"

#include "CommonUtils.h"
#include "ConfigParser.h"
#include "Log.h"
#include "OfflineDataHandler.h"
#include "OfflineRecord.h"
#include "SystemPaths.h"

#include <algorithm>
#include <filesystem>

namespace quorl {
namespace {

constexpr std::int64_t noUsableEnrollment = 2;

bool names(const Value& list, std::int64_t authId) {
    return list.is_array() && std::any_of(list.begin(), list.end(), [&](const Value& entry) {
               return authenticatorId(entry) == authId;
           });
}

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
      clock_(clock) {
    logLine("OfflineMFAController:: Successfully initialized offline MFA related data");
}

bool OfflineMFAController::isTOTP(std::int64_t authId) {
    return std::find(TOTP_AUTH_IDS.begin(), TOTP_AUTH_IDS.end(), authId) != TOTP_AUTH_IDS.end();
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
    const Value* policyData = member(*stored, "POLICY_DATA");
    const Value* userData = member(*stored, "USER_DATA");
    if (!policyData || !policyData->is_object() || !userData || !userData->is_object()) {
        logLine(
            "OfflineMFAController :: getOfflineData :: User policy data not found /User auth data "
            "not found");
        return false;
    }
    logLine("OfflineMFAController::getOfflineData : Successfully got Offline enrollment data");
    const OfflineRecord record(*policyData, *userData);
    noOfFactors_ = record.noOfFactors;
    limitType_ = record.limitType;
    limit_ = record.limit;
    validUserAttempts_ = record.validUserAttempts;
    lastOnlineMfaTime_ = record.lastOnlineMfaTime;
    buildAuthenticators(record);
    return takeMandatoryAuths(record.mandatoryAuths);
}

void OfflineMFAController::buildAuthenticators(const OfflineRecord& record) {
    optionalAuths_.clear();
    logLine("OfflineMFAController::getOfflineData : enabled auths : {}", record.enabledAuths);
    authList_.clear();
    for (const Value& entry : record.enabledAuths) {
        const Value* authData = member(record.authEnrollmentData, enrollmentKey(entry));
        if (!authData || !authData->is_object()) {
            logLine("MFAController::doAuthenticate : auth data is empty for auth-id : {}", entry);
            continue;
        }
        const std::optional<std::int64_t> authId = authenticatorId(entry);
        if (!authId || !isTOTP(*authId)) {
            logLine("OfflineMFAController::getOfflineData : no one-time codes for auth-id : {}",
                    entry);
            continue;
        }
        if (!authList_.try_emplace(*authId, authData, accessKey_, clock_).second)
            logLine("OfflineMFAController::getOfflineData : enabled more than once, auth-id : {}",
                    entry);
        if (!names(record.mandatoryAuths, *authId))
            optionalAuths_.push_back(*authId);
    }
}

// A mandatory factor that cannot be verified must not be skipped: the flow fails before it starts.
bool OfflineMFAController::takeMandatoryAuths(const Value& mandatoryAuths) {
    if (!mandatoryAuths.is_array()) {
        logLine("OfflineMFAController::getOfflineData : MANDATORY_AUTHS is no list");
        return false;
    }
    mandatoryAuths_.clear();
    for (const Value& entry : mandatoryAuths) {
        const std::optional<std::int64_t> authId = authenticatorId(entry);
        if (!authId || !authList_.contains(*authId)) {
            logLine(
                "OfflineMFAController::getOfflineData : no usable authenticator for mandatory "
                "auth-id : {}",
                entry);
            return false;
        }
        mandatoryAuths_.push_back(*authId);
    }
    return true;
}

void OfflineMFAController::performOfflineAuth() {
    logLine("OfflineMFAController::performOfflineAuth : Going to perform offline MFA...");
    if (!mandatoryAuths_.empty()) {
        currentTab_ = Tab::verify;
        currentauthId_ = mandatoryAuths_.front();
        logLine("OfflineMFAController::performOfflineAuth : Current authenticator id is {}",
                currentauthId_);
        std::erase(mandatoryAuths_, currentauthId_);
    } else if (std::cmp_not_equal(optionalAuths_.size(), noOfFactors_)) {
        logLine("OfflineMFAController::performOfflineAuth : Redirecting to Choose Page");
        currentTab_ = Tab::choose;
    } else {
        currentTab_ = Tab::verify;
        // No method at all where no factor is owed: a view that verifies nothing, not a crash.
        currentauthId_ = optionalAuths_.empty() ? 0 : optionalAuths_.front();
        logLine("OfflineMFAController::performOfflineAuth : Current authenticator id is {} ",
                currentauthId_);
        if (!optionalAuths_.empty())
            optionalAuths_.erase(optionalAuths_.begin());
    }
    loadPage();
}

void OfflineMFAController::loadPage() {
    html_->loadFromResource("resources/offlineMFA/OfflineMFA", "htm");
}

const TOTPAuthenticator* OfflineMFAController::currentAuthenticator() const {
    const auto found = authList_.find(currentauthId_);
    return found == authList_.end() ? nullptr : &found->second;
}

}  // namespace quorl
