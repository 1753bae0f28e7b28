#pragma once

#include "Clock.h"
#include "ServerCommunicator.h"
#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// Result of preAuth: whether a user may be verified offline.
enum class PreAuthResult {
    allowed = 0,
    noOfflineData = 1,
    limitReached = 2,
    offlineMFADisabled = 3,
};

/// "OFFLINE_MFA_LIMIT_TYPE": what limits offline verification. Any other number is no limit.
enum OfflineLimitType : std::int64_t { limitNone = 0, limitDays = 1, limitAttempts = 2 };

/// The bridge between the server and the offline store: the sync, and the offline limits. All calls
/// block the calling thread.
class EnrollmentHandler {
  public:
    explicit EnrollmentHandler(const Clock& clock = systemClock());

    /// Signed headers with which a portal page may post an enrollment itself.
    std::optional<Value> getAddEnrollmentHeader() const;

    /// Fetches a user's enrollment from the server and stores it; prunes users who are no longer
    /// enrolled. Failures are log lines.
    void getEnrollmentData(const std::optional<std::string>& dataAccessToken);

    PreAuthResult preAuth(const std::string& user) const;

    /// Counts a successful offline verification; true, and nothing counted, when the limit of
    /// attempts is reached already.
    bool isAttemptLimitedReached(const std::string& user);

    /// After an online verification: counter to 0, time to now.
    void resetOfflineLimit(const std::string& user);

  private:
    ServerCommunicator communicator_;
    Value configDetails_;
    bool isOfflineMFA_;
    const Clock& clock_;
};

}  // namespace quorl
