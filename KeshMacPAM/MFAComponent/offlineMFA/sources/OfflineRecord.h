#pragma once

#include "Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quorl {

/// What an offline verification needs of a user's stored record. Members of another kind than the
/// one expected count as absent, each with a log line: numbers as 0, lists and dictionaries as
/// empty.
struct OfflineRecord {
    /// From the record's "POLICY_DATA" and "USER_DATA".
    OfflineRecord(const Value& policyData, const Value& userData);

    std::int64_t noOfFactors;        ///< verifications owed
    std::int64_t limitType;          ///< an OfflineLimitType; any other number is no limit
    std::int64_t limit;              ///< in the limit type's unit
    std::int64_t validUserAttempts;  ///< offline verifications already counted
    std::int64_t lastOnlineMfaTime;  ///< seconds since 1970-01-01 UTC
    Value enabledAuths;              ///< list of ids, as stored
    /// List of ids as stored. The one exception: another kind is kept as it is, for what is
    /// mandatory cannot be taken as nothing.
    Value mandatoryAuths;
    Value authEnrollmentData;  ///< id as decimal text to that authenticator's record
};

/// The id that a list's entry names; nothing when the entry is no whole number.
std::optional<std::int64_t> authenticatorId(const Value& entry);

/// The key of an entry's id in the enrollment data: decimal text for a number, a text as it is.
std::string enrollmentKey(const Value& entry);

}  // namespace quorl
