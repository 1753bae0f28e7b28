#pragma once

#include "Handle.h"

#include <sys/types.h>

#include <optional>
#include <string>

namespace quorl {

/// A trial of the program that the web engine confines its pages' process with. The engine itself
/// never says that it runs without a sandbox, and aborts the whole application when the sandbox
/// fails to start. It runs beside what its maker does meanwhile, a few seconds at most.
class SandboxTrial {
  public:
    SandboxTrial();
    ~SandboxTrial();
    SandboxTrial(const SandboxTrial&) = delete;
    SandboxTrial& operator=(const SandboxTrial&) = delete;

    /// Nothing when it worked; else what is wrong and what to change, as one line. Waits for the
    /// trial's end when it is asked for first.
    const std::optional<std::string>& fault();

  private:
    std::optional<std::string> outcome();

    pid_t trial_ = 0;
    FileDescriptor said_;
    std::string cannotStart_;
    bool ended_ = false;
    std::optional<std::string> fault_;
};

}  // namespace quorl
