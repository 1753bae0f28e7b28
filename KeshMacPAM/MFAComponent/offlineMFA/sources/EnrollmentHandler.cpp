#include "EnrollmentHandler.h"

#include "ConfigParser.h"
#include "Log.h"
#include "OfflineDataHandler.h"

#include <ctime>
#include <limits>
#include <vector>

namespace quorl {
namespace {

using namespace std::chrono;

const std::string getEnrollmentURI = "/RestAPI/logonagent/mfa/getOfflineEnrollment";
const std::string addEnrollmentURI = "/RestAPI/logonagent/mfa/addOfflineEnrollment";

// Ten days for each unit of a limit by days: so the limits are understood everywhere.
constexpr seconds limitUnit{864'000};

// Wide enough that no value of a policy overflows.
__extension__ using Wide = __int128;

std::int64_t wholeSeconds(const Clock& clock) {
    return floor<seconds>(clock.now()).time_since_epoch().count();
}

// The dictionary under the key; a member of another kind counts as absent, so that no reply or
// record of the wrong form opens a limit.
const Value* dictionaryUnder(const Value& dictionary, std::string_view key) {
    const Value* found = member(dictionary, key);
    return found && found->is_object() ? found : nullptr;
}

/// What the limits of a user's record are decided by; nothing without policy and user data.
struct OfflineLimits {
    std::int64_t type = 0;
    std::int64_t value = 0;
    std::int64_t attempts = 0;
    std::int64_t lastOnlineTime = 0;

    static std::optional<OfflineLimits> of(const Value& record) {
        const Value* policy = dictionaryUnder(record, "POLICY_DATA");
        const Value* user = dictionaryUnder(record, "USER_DATA");
        if (!policy || !user)
            return std::nullopt;
        return OfflineLimits{
            .type = integerValue(*policy, "OFFLINE_MFA_LIMIT_TYPE"),
            .value = integerValue(*policy, "OFFLINE_MFA_LIMIT_VALUE"),
            .attempts = integerValue(*user, "SUCCESSFUL_OFFLINE_MFA_ATTEMPTS"),
            .lastOnlineTime = integerValue(*user, "LAST_ONLINE_MFA_TIME"),
        };
    }

    bool attemptsUsedUp() const { return type == limitAttempts && attempts >= value; }
    bool periodOver(std::int64_t now) const {
        return type == limitDays &&
               Wide(now) > Wide(value) * limitUnit.count() + Wide(lastOnlineTime);
    }
};

/// A record whose user data has been changed; the rest stays as it is.
Value withUserData(const Value& record, std::initializer_list<std::pair<const char*, Value>> data) {
    Value changed = record;
    for (const auto& [key, value] : data)
        changed["USER_DATA"][key] = value;
    return changed;
}

enum class Stored { whole, withoutPolicy };

// The old record goes first, so that nothing of an earlier enrollment survives.
Stored storeUser(const Value& offlineData) {
    if (!OfflineDataHandler::ensureDataEncryptionKey()) {
        logLine("getEnrollmentData: DEK is not present / Error occured while generating");
        return Stored::whole;
    }
    const auto user = stringValue(offlineData, "USER_NAME");
    if (!user) {
        logLine("getEnrollmentData: User Name is not present in response");
        return Stored::whole;
    }
    logLine("getEnrollmentData: Sync user offline data - {}", *user);
    OfflineDataHandler::deleteUserOfflineData(*user);
    const Value* policy = dictionaryUnder(offlineData, "POLICY_DATA");
    if (!policy) {
        logLine("getEnrollmentData: policy Data is not present in response of user - {}", *user);
        return Stored::withoutPolicy;
    }
    OfflineDataHandler::setOfflineData(*user, "POLICY_DATA", *policy);
    if (const Value* userData = dictionaryUnder(offlineData, "USER_DATA")) {
        OfflineDataHandler::setOfflineData(*user, "USER_DATA", *userData);
    } else {
        logLine("getEnrollmentData: User Auth Data is not present in response of user - {}", *user);
        OfflineDataHandler::deleteUserOfflineData(*user);
    }
    return Stored::whole;
}

void pruneUsers(const Value& enrolledUsers) {
    if (!enrolledUsers.is_array()) {
        logLine("getEnrollmentData: ENROLLED_USERS_LIST is no list, all users are kept");
        return;
    }
    std::vector<std::string> names;
    for (const Value& name : enrolledUsers)
        if (name.is_string())
            names.push_back(name.get<std::string>());
    OfflineDataHandler::removeDeletedUsers(OfflineDataHandler::getEnrolledUserList(), names);
}

// False when the sync ends here and now.
bool takeReply(const Value& reply) {
    if (member(reply, "ERROR_MSG")) {
        logLine("getEnrollmentData: Error occured while sending req. to server");
    } else if (const Value* offlineData = member(reply, "OFFLINE_MFA_DATA")) {
        if (storeUser(*offlineData) == Stored::withoutPolicy)
            return false;
    } else if (const Value* error = member(reply, "INTERNAL_ERROR")) {
        logLine("getEnrollmentData: Internal Error occured - {}", *error);
    } else {
        logLine("getEnrollmentData: Invalid response from server");
    }
    if (const Value* enrolledUsers = member(reply, "ENROLLED_USERS_LIST"))
        pruneUsers(*enrolledUsers);
    return true;
}

}  // namespace

EnrollmentHandler::EnrollmentHandler(const Clock& clock)
    : communicator_(clock),
      configDetails_(getProductConfig(getConfigFilePath())),
      isOfflineMFA_(isTrue(configDetails_, "OFFLINE_MFA")),
      clock_(clock) {}

std::optional<Value> EnrollmentHandler::getAddEnrollmentHeader() const {
    return communicator_.getAuthRequestHeaders(configText(configDetails_, "ACCESS_KEY"),
                                               configText(configDetails_, "AGENT_ID"),
                                               addEnrollmentURI, "POST");
}

void EnrollmentHandler::getEnrollmentData(const std::optional<std::string>& dataAccessToken) {
    logLine("EnrollmentHandler::getEnrollmentData : getEnrollmentData from the Server ");
    const std::clock_t start = std::clock();
    const std::string body = dataAccessToken ? "DATA_ACCESS_TOKEN=" + *dataAccessToken : "";
    if (!communicator_.isAccessKeyExists()) {
        logLine("EnrollmentHandler::getEnrollmentData :unable to get Agent key for API protection");
    } else {
        const auto reply =
            communicator_.sendRequestWithAuthHeader(getEnrollmentURI, "POST", nullptr, body);
        if (!takeReply(reply.value_or(Value())))
            return;
    }
    logLine("EnrollmentHandler::getEnrollmentData : total time taken to sync is {:f}",
            static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
}

PreAuthResult EnrollmentHandler::preAuth(const std::string& user) const {
    if (!isOfflineMFA_) {
        logLine("EnrollmentHandler::preAuth : Offline MFA not enabled");
        return PreAuthResult::offlineMFADisabled;
    }
    const auto record = OfflineDataHandler::getOfflineData(user);
    if (!record) {
        logLine("EnrollmentHandler::preAuth : User policy data not found / user not enrolled ");
        return PreAuthResult::noOfflineData;
    }
    const auto limits = OfflineLimits::of(*record);
    if (!limits) {
        logLine("EnrollmentHandler::preAuth : User policy data not found ");
        return PreAuthResult::noOfflineData;
    }
    if (limits->attemptsUsedUp()) {
        logLine(
            "EnrollmentHandler::preAuth : User Offline MFA limit reached validUserAttempts {}, "
            "attempt limit in policy: {}",
            limits->attempts, limits->value);
    } else if (limits->periodOver(wholeSeconds(clock_))) {
        logLine(
            "EnrollmentHandler::preAuth : User Offline MFA limit reached, it has been {} days "
            "since you performed online verification. Last online time: {}",
            limits->value, limits->lastOnlineTime);
    } else {
        logLine("EnrollmentHandler::preAuth : User can Perform Offline MFA ");
        return PreAuthResult::allowed;
    }
    logLine(
        "EnrollmentHandler::preAuth : User Offline MFA limit reached, redirecting to Error Page");
    return PreAuthResult::limitReached;
}

bool EnrollmentHandler::isAttemptLimitedReached(const std::string& user) {
    if (!isOfflineMFA_) {
        logLine("EnrollmentHandler::isAttemptLimitedReached : Offline MFA not enabled");
        return false;
    }
    bool reached = false;
    OfflineDataHandler::updateUserRecord(user, [&](const Value& record) -> std::optional<Value> {
        const auto limits = OfflineLimits::of(record);
        if (!limits)
            return std::nullopt;
        if (limits->attemptsUsedUp()) {
            logLine(
                "EnrollmentHandler::preAuth : User Offline MFA limit reached "
                "validUserAttempts : {}, attempt limit in policy: {}",
                limits->attempts, limits->value);
            reached = true;
            return std::nullopt;
        }
        // Counted for every type of limit: the type may change with the next sync.
        const bool full = limits->attempts == std::numeric_limits<std::int64_t>::max();
        const std::int64_t attempts = full ? limits->attempts : limits->attempts + 1;
        return withUserData(record, {{"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", attempts}});
    });
    return reached;
}

void EnrollmentHandler::resetOfflineLimit(const std::string& user) {
    if (!isOfflineMFA_) {
        logLine("EnrollmentHandler::resetOfflineLimit : Offline MFA not enabled");
        return;
    }
    bool found = false;
    OfflineDataHandler::updateUserRecord(user, [&](const Value& record) -> std::optional<Value> {
        found = true;
        if (!dictionaryUnder(record, "USER_DATA")) {
            logLine("EnrollmentHandler::resetOfflineLimit : User auth data not found");
            return std::nullopt;
        }
        logLine("EnrollmentHandler::resetOfflineLimit : Going to rest offline limit.");
        return withUserData(record, {{"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 0},
                                     {"LAST_ONLINE_MFA_TIME", wholeSeconds(clock_)}});
    });
    if (!found)
        logLine("EnrollmentHandler::resetOfflineLimit : Offline data not found for the user");
}

}  // namespace quorl
