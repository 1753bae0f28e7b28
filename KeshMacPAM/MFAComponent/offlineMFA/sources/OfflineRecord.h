#pragma once

#include "OfflineLimits.h"
#include "Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quorl {

/// A record's "POLICY_DATA" and "USER_DATA"; nothing unless both are dictionaries. They live as
/// long as the record is unchanged.
struct RecordParts {
    const Value& policyData;
    const Value& userData;

    static std::optional<RecordParts> of(const Value& record);
};

/// What an offline verification needs of a user's stored record.
struct OfflineRecord {
    /// Nothing, and a log line that names the key, when a number is missing, negative or of another
    /// kind: such a record is not to be used. Lists and dictionaries of another kind count as
    /// empty.
    static std::optional<OfflineRecord> read(const RecordParts& parts);

    std::int64_t noOfFactors = 0;  ///< verifications owed
    OfflineLimits limits;
    Value enabledAuths;  ///< list of ids, as stored
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
