#pragma once

#include "Clock.h"
#include "ServerCommunicator.h"
#include "Value.h"

#include <chrono>
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

/// Whether a user may be verified offline, and what that takes.
struct OfflineStanding {
    PreAuthResult result = PreAuthResult::noOfflineData;
    /// Verifications that the policy asks for; 0 without a usable record. A policy may ask for
    /// none: then the offline page lets its user in without a code, which a caller may not want.
    std::int64_t factors = 0;
};

/// What became of an offline verification that was to be counted. Only `counted` is on the disk.
enum class CountResult {
    counted,
    limitReached,
    noOfflineData,
    notWritten,
    offlineMFADisabled,
};

/// The bridge between the server and the offline store: the sync, and the offline limits. Making
/// one opens the log and loads the configuration. The limits ask nothing but the store; the server
/// is spoken to, and the agent registered where it is not yet, by the first call that needs it. All
/// calls block the calling thread. The clock outlives it.
class EnrollmentHandler {
  public:
    explicit EnrollmentHandler(const Clock& clock);

    /// Signed headers with which a portal page may post an enrollment itself.
    std::optional<Value> getAddEnrollmentHeader();

    /// Fetches a user's enrollment from the server and stores it in one piece, or leaves the old
    /// one; prunes users who are no longer enrolled. Gives the user whose record was stored;
    /// nothing, and log lines, when none was.
    std::optional<std::string> getEnrollmentData(const std::optional<std::string>& dataAccessToken);

    PreAuthResult preAuth(const std::string& user) const;
    /// The same at a time (since 1970-01-01 UTC) that the caller trusts more than the clock.
    OfflineStanding standing(const std::string& user, std::chrono::seconds now) const;
    /// The same of a record that the caller has read; nothing for a user without one.
    OfflineStanding standing(const std::optional<Value>& stored, std::chrono::seconds now) const;

    /// Counts a successful offline verification; true, and nothing counted, when the limit of
    /// attempts is reached already.
    bool isAttemptLimitedReached(const std::string& user);
    /// The same, telling what is true when the limit is not reached, too.
    CountResult countVerification(const std::string& user);

    /// After an online verification: counter to 0, time to now. True when that is on the disk.
    bool resetOfflineLimit(const std::string& user);

  private:
    ServerCommunicator& communicator();

    const Clock& clock_;
    Value configDetails_;
    bool isOfflineMFA_;
    std::optional<ServerCommunicator> communicator_;
};

}  // namespace quorl
