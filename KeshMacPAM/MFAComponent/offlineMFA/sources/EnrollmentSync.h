#pragma once

#include "Clock.h"
#include "OfflineDataHandler.h"
#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// What the server answered to the request for enrollment data.
struct EnrollmentAnswer {
    Value body;
    long status = 0;  ///< HTTP's; 0 without a reply
};

/// How taking it ended.
struct SyncEnd {
    std::optional<std::string> storedUser;  ///< whose record was stored
    bool atOnce = false;                    ///< a reply without policy ends the sync there and then
};

/// Brings the store up to the answer: the user's record in one piece or not at all, then, of those
/// who were stored before the request, the users whom the server no longer lists are removed.
SyncEnd takeAnswer(const EnrollmentAnswer& answer,
                   const OfflineDataHandler::SyncTimes& storedBefore, const Clock& clock);

}  // namespace quorl
