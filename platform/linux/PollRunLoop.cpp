#include "PollRunLoop.h"

#include <algorithm>
#include <utility>

namespace quorl {

void PollRunLoop::add(RunLoopSource& source) {
    sources_.push_back(&source);
    entries_.push_back({.fd = source.descriptor(), .events = POLLIN, .revents = 0});
}

void PollRunLoop::addForHangUp(RunLoopSource& source) {
    // A hang-up is told whatever is asked for.
    sources_.push_back(&source);
    entries_.push_back({.fd = source.descriptor(), .events = 0, .revents = 0});
}

void PollRunLoop::remove(RunLoopSource& source) {
    const auto found = std::ranges::find(sources_, &source);
    if (found == sources_.end())
        return;
    *found = nullptr;
    entries_[static_cast<std::size_t>(found - sources_.begin())] = {
        .fd = -1, .events = 0, .revents = 0};
    hasRemoved_ = true;
}

void PollRunLoop::forgetRemoved() {
    if (!std::exchange(hasRemoved_, false))
        return;
    std::erase(sources_, nullptr);
    std::erase_if(entries_, [](const pollfd& entry) { return entry.fd < 0; });
}

void PollRunLoop::dispatch() {
    // By index: a callback may add sources, which are served from the next wait on.
    const std::size_t count = sources_.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (sources_[i] && entries_[i].revents != 0)
            sources_[i]->ready();
    }
}

void PollRunLoop::runFor(std::chrono::milliseconds duration) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + duration;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0)
            return;
        forgetRemoved();
        if (poll(entries_.data(), entries_.size(), static_cast<int>(left)) > 0)
            dispatch();
    }
}

}  // namespace quorl
