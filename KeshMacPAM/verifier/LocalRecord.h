#pragma once

#include "Clock.h"
#include "EnrollmentHandler.h"
#include "OfflineMethods.h"
#include "SecondFactorPolicy.h"

#include <chrono>
#include <optional>
#include <string>

namespace quorl {

/// A user's stored record, as a sign-in needs it. Nothing but startAnew() waits for a network.
class LocalRecord {
  public:
    LocalRecord(std::string user, const Clock& clock);

    /// What the record allows, by that time.
    OfflineState state(std::chrono::sys_seconds now) const;

    /// The factors that are owed and the methods to ask for.
    struct Owed {
        std::int64_t factors = 0;
        OfflineMethods methods;
        LimitNotice notice;
    };
    /// Nothing when there is nothing to ask for, or no way to.
    std::optional<Owed> owed(std::chrono::sys_seconds now) const;

    /// Counts one use, before anybody is let in by it.
    CountResult count();
    /// After an online sign-in: the limits begin anew, and a token fetches the record anew.
    void startAnew(const std::string& token);

  private:
    std::string user_;
    const Clock& clock_;
    EnrollmentHandler handler_;
};

}  // namespace quorl
