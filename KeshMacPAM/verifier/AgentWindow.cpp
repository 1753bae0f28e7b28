#include "AgentWindow.h"

namespace quorl {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::seconds busyWait{5};
constexpr std::chrono::seconds sendWait{2};

}  // namespace

AgentWindow::Answer AgentWindow::show(const Value& request, HostChannel::SteadyTime until,
                                      const ServerProbe* probe) {
    const auto lock = WaitingLock::take(lockFile_, busyWait, [&] {
        host_.waitFor(-1, -1, SteadyClock::now());
        return true;
    });
    if (!lock)
        return {.end = End::busy, .reason = lock.error()};
    host_.alive();
    const auto start = SteadyClock::now();
    auto sent = AgentRequest::send(agent_, request, sendWait);
    if (!sent)
        return {.end = End::noAgent, .reason = sent.error().reason};
    int watched = probe ? probe->descriptor() : -1;
    for (;;) {
        if (auto result = sent->take()) {
            const auto shown =
                std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - start);
            if (*result)
                return {.end = End::answered, .result = std::move(**result), .shown = shown};
            return {.end = End::noAgent, .reason = result->error().reason, .shown = shown};
        }
        if (watched >= 0 && probe->state()) {
            if (*probe->state() != ServerState::answers)
                return {.end = End::interrupted, .reason = "the server does not answer"};
            watched = -1;
        }
        if (host_.waitFor(sent->descriptor(), watched, until) == HostChannel::Wait::timeUp)
            return {.end = End::timeUp, .reason = "the time is up"};
    }
}

}  // namespace quorl
