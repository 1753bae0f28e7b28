#include "OfflineMethods.h"

#include "Log.h"

#include <algorithm>

namespace quorl {
namespace {

bool names(const Value& list, std::int64_t authId) {
    return list.is_array() && std::any_of(list.begin(), list.end(), [&](const Value& entry) {
               return authenticatorId(entry) == authId;
           });
}

bool takeMandatory(const Value& mandatoryAuths, OfflineMethods& methods) {
    if (!mandatoryAuths.is_array()) {
        logLine("OfflineMFAController::getOfflineData : MANDATORY_AUTHS is no list");
        return false;
    }
    for (const Value& entry : mandatoryAuths) {
        const std::optional<std::int64_t> authId = authenticatorId(entry);
        if (!authId || !methods.find(*authId)) {
            logLine(
                "OfflineMFAController::getOfflineData : no usable authenticator for mandatory "
                "auth-id : {}",
                entry);
            return false;
        }
        methods.ids.mandatory.push_back(*authId);
    }
    return true;
}

}  // namespace

bool isTOTP(std::int64_t authId) {
    return std::find(TOTP_AUTH_IDS.begin(), TOTP_AUTH_IDS.end(), authId) != TOTP_AUTH_IDS.end();
}

const TOTPAuthenticator* OfflineMethods::find(std::int64_t authId) const {
    const auto found = authenticators.find(authId);
    return found == authenticators.end() ? nullptr : &found->second;
}

std::optional<OfflineMethods> offlineMethods(const OfflineRecord& record,
                                             const std::string& accessKey, const Clock& clock) {
    logLine("OfflineMFAController::getOfflineData : enabled auths : {}", record.enabledAuths);
    OfflineMethods methods;
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
        if (!methods.authenticators.try_emplace(*authId, authData, accessKey, clock).second)
            logLine("OfflineMFAController::getOfflineData : enabled more than once, auth-id : {}",
                    entry);
        if (!names(record.mandatoryAuths, *authId))
            methods.ids.optional.push_back(*authId);
    }
    if (!takeMandatory(record.mandatoryAuths, methods))
        return std::nullopt;
    return methods;
}

}  // namespace quorl
