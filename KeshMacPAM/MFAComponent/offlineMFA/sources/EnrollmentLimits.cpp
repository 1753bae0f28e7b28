#include "ConfigParser.h"
#include "EnrollmentHandler.h"
#include "Log.h"
#include "OfflineDataHandler.h"
#include "OfflineRecord.h"

#include <limits>

// What the handler decides from the store alone, without the server.
namespace quorl {
namespace {

using namespace std::chrono;

seconds wholeSeconds(const Clock& clock) {
    return floor<seconds>(clock.now()).time_since_epoch();
}

/// A record whose user data has been changed; the rest stays as it is.
Value withUserData(const Value& record, std::initializer_list<std::pair<const char*, Value>> data) {
    Value changed = record;
    for (const auto& [key, value] : data)
        changed["USER_DATA"][key] = value;
    return changed;
}

std::optional<OfflineRecord> usableRecord(const Value& record) {
    const auto parts = RecordParts::of(record);
    return parts ? OfflineRecord::read(*parts) : std::nullopt;
}

/// Whether the user may go on; a log line says why not.
bool withinLimits(const OfflineLimits& limits, seconds now) {
    if (limits.usedUp()) {
        logLine(
            "EnrollmentHandler::preAuth : User Offline MFA limit reached validUserAttempts {}, "
            "attempt limit in policy: {}",
            limits.attempts, limits.value);
    } else if (limits.fromTheFuture(now)) {
        logLine(
            "EnrollmentHandler::preAuth : the last online time {} lies more than a day ahead of "
            "this machine's clock, which says {}: set the clock",
            limits.lastOnlineTime, now.count());
    } else if (limits.over(now)) {
        logLine(
            "EnrollmentHandler::preAuth : User Offline MFA limit reached, it has been {} days "
            "since you performed online verification. Last online time: {}",
            limits.value, limits.lastOnlineTime);
    } else {
        return true;
    }
    logLine(
        "EnrollmentHandler::preAuth : User Offline MFA limit reached, redirecting to Error Page");
    return false;
}

}  // namespace

PreAuthResult EnrollmentHandler::preAuth(const std::string& user) const {
    return standing(user, wholeSeconds(clock_)).result;
}

OfflineStanding EnrollmentHandler::standing(const std::string& user, seconds now) const {
    return standing(isOfflineMFA_ ? OfflineDataHandler::getOfflineData(user) : std::nullopt, now);
}

OfflineStanding EnrollmentHandler::standing(const std::optional<Value>& stored, seconds now) const {
    if (!isOfflineMFA_) {
        logLine("EnrollmentHandler::preAuth : Offline MFA not enabled");
        return {PreAuthResult::offlineMFADisabled, 0};
    }
    if (!stored) {
        logLine("EnrollmentHandler::preAuth : User policy data not found / user not enrolled ");
        return {PreAuthResult::noOfflineData, 0};
    }
    const auto record = usableRecord(*stored);
    if (!record) {
        logLine("EnrollmentHandler::preAuth : User policy data not found ");
        return {PreAuthResult::noOfflineData, 0};
    }
    if (!isTrue(configDetails_, "RESTRICT_BADCERT"))
        logLine(
            "EnrollmentHandler::preAuth : RESTRICT_BADCERT is not \"true\": anyone on the way to "
            "the server could have sent this record");
    if (!withinLimits(record->limits, now))
        return {PreAuthResult::limitReached, record->noOfFactors};
    logLine("EnrollmentHandler::preAuth : User can Perform Offline MFA ");
    return {PreAuthResult::allowed, record->noOfFactors};
}

bool EnrollmentHandler::isAttemptLimitedReached(const std::string& user) {
    return countVerification(user) == CountResult::limitReached;
}

CountResult EnrollmentHandler::countVerification(const std::string& user) {
    if (!isOfflineMFA_) {
        logLine("EnrollmentHandler::isAttemptLimitedReached : Offline MFA not enabled");
        return CountResult::offlineMFADisabled;
    }
    // What leaving the record alone means; the change below may know better.
    CountResult leftAlone = CountResult::noOfflineData;
    const auto updated = OfflineDataHandler::updateUserRecord(
        user, [&](const Value& stored) -> std::optional<Value> {
            const auto record = usableRecord(stored);
            if (!record)
                return std::nullopt;
            const OfflineLimits& limits = record->limits;
            if (limits.usedUp()) {
                logLine(
                    "EnrollmentHandler::preAuth : User Offline MFA limit reached "
                    "validUserAttempts : {}, attempt limit in policy: {}",
                    limits.attempts, limits.value);
                leftAlone = CountResult::limitReached;
                return std::nullopt;
            }
            // Counted for every type of limit: the type may change with the next sync.
            const bool full = limits.attempts == std::numeric_limits<std::int64_t>::max();
            const std::int64_t attempts = full ? limits.attempts : limits.attempts + 1;
            return withUserData(stored, {{"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", attempts}});
        });
    switch (updated) {
        case OfflineDataHandler::Updated::written:
            return CountResult::counted;
        case OfflineDataHandler::Updated::noRecord:
            return CountResult::noOfflineData;
        case OfflineDataHandler::Updated::leftAlone:
            return leftAlone;
        case OfflineDataHandler::Updated::notWritten:
            break;
    }
    return CountResult::notWritten;
}

bool EnrollmentHandler::resetOfflineLimit(const std::string& user) {
    if (!isOfflineMFA_) {
        logLine("EnrollmentHandler::resetOfflineLimit : Offline MFA not enabled");
        return false;
    }
    const auto updated = OfflineDataHandler::updateUserRecord(
        user, [&](const Value& record) -> std::optional<Value> {
            const Value* userData = member(record, "USER_DATA");
            if (!userData || !userData->is_object()) {
                logLine("EnrollmentHandler::resetOfflineLimit : User auth data not found");
                return std::nullopt;
            }
            logLine("EnrollmentHandler::resetOfflineLimit : Going to rest offline limit.");
            return withUserData(record, {{"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 0},
                                         {"LAST_ONLINE_MFA_TIME", wholeSeconds(clock_).count()}});
        });
    if (updated == OfflineDataHandler::Updated::noRecord)
        logLine("EnrollmentHandler::resetOfflineLimit : Offline data not found for the user");
    return updated == OfflineDataHandler::Updated::written;
}

}  // namespace quorl
