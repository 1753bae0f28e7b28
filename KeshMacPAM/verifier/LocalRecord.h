#pragma once

#include "Clock.h"
#include "EnrollmentHandler.h"
#include "OfflineMethods.h"
#include "SecondFactorPolicy.h"

#include <chrono>
#include <optional>
#include <string>

namespace quorl {

/// A user's record, as a sign-in needs it. What is asked of it is asked of the record as it was
/// read, since each reading of the store takes longer than all the rest before a first prompt; what
/// is written goes by the store. Nothing but startAnew() waits for a network.
class LocalRecord {
  public:
    LocalRecord(std::string user, std::optional<Value> stored, const Clock& clock);
    ~LocalRecord();
    LocalRecord(const LocalRecord&) = delete;
    LocalRecord& operator=(const LocalRecord&) = delete;

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
    std::optional<Value> stored_;
    const Clock& clock_;
    EnrollmentHandler handler_;
};

}  // namespace quorl
