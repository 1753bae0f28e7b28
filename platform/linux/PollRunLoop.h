#pragma once

#include "RunLoop.h"

#include <poll.h>

#include <vector>

namespace quorl {

/// A run loop of a plain thread. Sources may be added and removed from inside a source's ready().
class PollRunLoop final : public RunLoop {
  public:
    void add(RunLoopSource& source) override;
    void addForHangUp(RunLoopSource& source) override;
    void remove(RunLoopSource& source) override;
    /// Sleeps through the whole duration in one wait when nothing happens.
    void runFor(std::chrono::milliseconds duration) override;

  private:
    void forgetRemoved();
    void dispatch();

    // One entry each, in the same order. A removed source leaves an empty place until the next
    // wait, so that a round of callbacks never loses its count.
    std::vector<RunLoopSource*> sources_;
    std::vector<pollfd> entries_;
    bool hasRemoved_ = false;
};

}  // namespace quorl
