#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace quorl {

/// A source that a run loop watches: a descriptor that turns readable, and what to do then.
/// Owned by a port; the run loop only borrows it between add and remove.
class RunLoopSource {
  public:
    virtual ~RunLoopSource() = default;
    virtual int descriptor() const = 0;
    /// Called on the loop's thread whenever the descriptor is readable, or hung up. Must not block.
    virtual void ready() = 0;
};

/// A thread's event loop. Used on its own thread only.
class RunLoop {
  public:
    virtual ~RunLoop() = default;
    virtual void add(RunLoopSource& source) = 0;
    /// Watches the descriptor for the other end's going alone: whatever can be read there is left.
    /// The source has to be removed when that has happened, else it is told again and again.
    virtual void addForHangUp(RunLoopSource& source) = 0;
    virtual void remove(RunLoopSource& source) = 0;
    /// Serves sources for that long, then returns. Not for a loop that the application framework
    /// runs itself.
    virtual void runFor(std::chrono::milliseconds duration) = 0;
};

}  // namespace quorl
