#pragma once

#include <array>
#include <cstddef>

namespace quorl::pam {

/// What the helper gets of the host's environment: its language. Built before the fork; the texts
/// stay the host's own.
struct HelperEnvironment {
    HelperEnvironment();

    static constexpr std::size_t most = 16;
    std::array<char*, most + 1> entries{};
};

/// Like fork, but without an exit signal and without the handlers that libraries leave for a fork:
/// they could wait for a lock that another thread of the host holds. Only calls that are safe in a
/// signal handler may follow in the child.
long forkUnseen();

struct StartChannels {
    int helper;  ///< the helper's end of its pair
    int birth;   ///< where the pidfd goes: a pair of its own, so that no packet of the helper's
                 ///< precedes
};

/// The rest of the child between host and helper: starts the helper, sends its pidfd and ends,
/// which makes the helper an orphan.
[[noreturn]] void startFromBetween(const char* program, StartChannels channels,
                                   const HelperEnvironment& environment);

}  // namespace quorl::pam
