#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace quorl {

/// "OFFLINE_MFA_LIMIT_TYPE": what limits offline verification. Any other number is no limit.
enum OfflineLimitType : std::int64_t { limitNone = 0, limitDays = 1, limitAttempts = 2 };

/// What the offline page says of a limit.
struct LimitNotice {
    std::string labelKey;  ///< of the localized label; empty for no label
    std::int64_t remaining = 0;
    bool low = false;  ///< few are left, or none
};

/// What limits a user's offline verifications, and how much of it is used, as the user's record
/// says. Times are seconds since 1970-01-01 UTC.
struct OfflineLimits {
    std::int64_t type = limitNone;
    std::int64_t value = 0;     ///< in the type's unit
    std::int64_t attempts = 0;  ///< offline verifications since the last online one
    std::int64_t lastOnlineTime = 0;

    /// A limit by attempts of which none is left.
    bool usedUp() const;
    /// A limit by days whose last second has passed.
    bool over(std::chrono::seconds now) const;
    /// Limited, and the last online verification lies more than a day ahead: one of the clocks was
    /// wrong, and nobody can tell how long the user stayed away.
    bool fromTheFuture(std::chrono::seconds now) const;
    LimitNotice notice(std::chrono::seconds now) const;
};

}  // namespace quorl
