#pragma once

#include "RelayedClient.h"

#include <sys/types.h>

#include <functional>
#include <list>
#include <string>

namespace quorl {

/// Lets one account's programs onto the accessibility bus of ours.
class Relay {
  public:
    struct Options {
        FileDescriptor listener;
        uid_t served;  ///< the one account whose programs are let on
        /// The address of the bus as it is now; empty when there is none.
        std::function<std::string()> busAddress;
        /// A further descriptor to wait for, and what to do when something has come there; that
        /// ends the process when the display has gone.
        int display = -1;
        std::function<void()> displayReady = {};
    };
    explicit Relay(Options options) : options_(std::move(options)) {}

    /// Waits for what comes next and serves it; for good, one step at a time.
    void step(int timeout = -1);

  private:
    void accept();

    Options options_;
    std::list<RelayedClient> clients_;
};

}  // namespace quorl
