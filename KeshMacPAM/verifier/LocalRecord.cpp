#include "LocalRecord.h"

#include "ConfigParser.h"
#include "OfflineRecord.h"

namespace quorl {

LocalRecord::LocalRecord(std::string user, std::optional<Value> stored, const Clock& clock)
    : user_(std::move(user)), stored_(std::move(stored)), clock_(clock), handler_(clock) {}

LocalRecord::~LocalRecord() {
    if (stored_)
        wipe(*stored_);
}

OfflineState LocalRecord::state(std::chrono::sys_seconds now) const {
    const OfflineStanding standing = handler_.standing(stored_, now.time_since_epoch());
    switch (standing.result) {
        case PreAuthResult::allowed:
            return standing.factors < 1 ? OfflineState::notEnrolled : OfflineState::allowed;
        case PreAuthResult::noOfflineData:
            return OfflineState::notEnrolled;
        case PreAuthResult::limitReached:
            return OfflineState::limitReached;
        case PreAuthResult::offlineMFADisabled:
            break;
    }
    return OfflineState::switchedOff;
}

std::optional<LocalRecord::Owed> LocalRecord::owed(std::chrono::sys_seconds now) const {
    const auto parts = stored_ ? RecordParts::of(*stored_) : std::nullopt;
    const auto record = parts ? OfflineRecord::read(*parts) : std::nullopt;
    if (!record)
        return std::nullopt;
    auto methods = offlineMethods(
        *record, configText(getProductConfig(getConfigFilePath()), "ACCESS_KEY"), clock_);
    // Nothing owed would be nothing asked.
    if (!methods || record->noOfFactors < 1)
        return std::nullopt;
    return Owed{record->noOfFactors, std::move(*methods),
                record->limits.notice(now.time_since_epoch())};
}

CountResult LocalRecord::count() {
    return handler_.countVerification(user_);
}

void LocalRecord::startAnew(const std::string& token) {
    handler_.resetOfflineLimit(user_);
    // The host may end this process at any time from here on, so the limits went first; a record
    // that is stored anew begins with the server's counters.
    if (!token.empty() && handler_.getEnrollmentData(token))
        handler_.resetOfflineLimit(user_);
}

}  // namespace quorl
