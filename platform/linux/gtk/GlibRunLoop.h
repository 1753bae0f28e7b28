#pragma once

#include "GlibSupport.h"
#include "RunLoop.h"

#include <map>

namespace quorl {

/// The main thread's loop: watches descriptors beside whatever GLib's default context serves.
/// Sources may be added and removed from inside a source's ready().
class GlibRunLoop final : public RunLoop {
  public:
    void add(RunLoopSource& source) override;
    void addForHangUp(RunLoopSource& source) override;
    void remove(RunLoopSource& source) override;
    void runFor(std::chrono::milliseconds duration) override;

  private:
    std::map<RunLoopSource*, GlibSource> sources_;
};

}  // namespace quorl
