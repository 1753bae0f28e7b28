#pragma once

#include "Handle.h"
#include "SecondFactorPolicy.h"

#include <atomic>
#include <optional>
#include <thread>

namespace quorl {

/// One look whether the server answers a signed call, on a thread of its own; three seconds at
/// most. The configuration must have been loaded. Its end is waited for by the destructor.
class ServerProbe {
  public:
    ServerProbe();
    ~ServerProbe();
    ServerProbe(const ServerProbe&) = delete;
    ServerProbe& operator=(const ServerProbe&) = delete;

    /// Readable once the state is known.
    int descriptor() const { return done_.get(); }
    std::optional<ServerState> state() const;

  private:
    FileDescriptor done_;
    std::atomic<int> state_{-1};
    std::thread thread_;
};

}  // namespace quorl
