#pragma once

#include "Bytes.h"

#include <chrono>
#include <cstdint>
#include <map>

namespace quorl {

/// What is remembered of one user's codes. Times are whole seconds of the wall clock, since they
/// outlive a restart; nothing in them may lock a user out for longer than a lock lasts, whatever
/// was done to the clock.
struct GuardState {
    using Seconds = std::chrono::seconds;
    using Time = std::chrono::sys_seconds;

    int wrongInRow = 0;  ///< since the latest lock or success
    int locksInRow = 0;
    Seconds lockLength{0};
    Time lockedUntil{};
    Time newest{};                                   ///< the newest time at which the user was seen
    std::map<std::int64_t, std::int64_t> used = {};  ///< newest accepted time step by authenticator

    bool operator==(const GuardState&) const = default;

    /// What takes the place of a file that cannot be read: locked for one minute.
    static GuardState damaged(Time now);
    /// From a file's content; damaged() when it is anything but what bytes() gives.
    static GuardState from(ByteView content, Time now);
    Bytes bytes() const;

    /// How long codes stay locked; 0 when they are not.
    Seconds lockedFor(Time now) const;
    /// The time by which a limit by days is judged: the clock's, unless that was turned back.
    Time limitTime(Time now) const;
    bool isUsed(std::int64_t authenticator, std::int64_t step) const;

    /// Notes that the user was seen; mends a lock that a turned clock made longer than it is.
    void see(Time now);
    void noteWrong(Time now, int codes);
    void noteUsed(std::int64_t authenticator, std::int64_t step);
    /// A success ends locks and the row of wrong codes.
    void noteSuccess();
    /// The server accepted this machine's signature, so the clock is right: what a wrong one left
    /// is forgotten.
    void trustClock(Time now);
};

}  // namespace quorl
