#include "OfflineLimits.h"

#include <limits>

namespace quorl {
namespace {

using std::chrono::seconds;

// One number, two units, side by side: servers everywhere mean ten days by a unit of the limit when
// they set how long a user may stay away, while the page counts it down in single days. Were the
// check to use the page's unit, users would be locked out long before their organisation meant it.
constexpr seconds unitOfCheck{10 * 86'400};
constexpr seconds unitOfNotice{86'400};

constexpr seconds clockTolerance = std::chrono::days(1);

constexpr std::int64_t fewAttempts = 5;
constexpr std::int64_t fewDays = 3;

// Wide enough that no number of a record overflows.
__extension__ using Wide = __int128;

std::int64_t within64Bits(Wide number) {
    using Limits = std::numeric_limits<std::int64_t>;
    if (number > Limits::max())
        return Limits::max();
    return number < Limits::min() ? Limits::min() : static_cast<std::int64_t>(number);
}

}  // namespace

bool OfflineLimits::usedUp() const {
    return type == limitAttempts && attempts >= value;
}

bool OfflineLimits::over(seconds now) const {
    return type == limitDays &&
           Wide(now.count()) > Wide(value) * unitOfCheck.count() + Wide(lastOnlineTime);
}

bool OfflineLimits::fromTheFuture(seconds now) const {
    return (type == limitDays || type == limitAttempts) &&
           Wide(lastOnlineTime) > Wide(now.count()) + clockTolerance.count();
}

LimitNotice OfflineLimits::notice(seconds now) const {
    if (type == limitAttempts) {
        const std::int64_t left = within64Bits(Wide(value) - attempts);
        return {"IDS_MFA_OFFLINE_LIMIT_ATTEMPTS", left, left <= fewAttempts};
    }
    if (type == limitDays) {
        const Wide days = (Wide(now.count()) - lastOnlineTime) / unitOfNotice.count();
        const std::int64_t left = within64Bits(value - days);
        return {"IDS_MFA_OFFLINE_LIMIT_DAYS", left, left <= fewDays};
    }
    return {};
}

}  // namespace quorl
