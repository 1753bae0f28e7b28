#pragma once

#include "Handle.h"

#include <tl/expected.hpp>

#include <chrono>
#include <functional>
#include <string>

namespace quorl {

/// A lock file, held while this lives. The system frees it when its holder ends, however that ends.
class WaitingLock {
  public:
    /// Called now and then while the lock is waited for; false gives up.
    using Meanwhile = std::function<bool()>;

    /// Takes the lock, waiting for at most that long; the reason when it is not to be had.
    static tl::expected<WaitingLock, std::string> take(const std::string& path,
                                                       std::chrono::milliseconds deadline,
                                                       const Meanwhile& meanwhile = {});

  private:
    explicit WaitingLock(FileDescriptor file) : file_(std::move(file)) {}

    FileDescriptor file_;
};

}  // namespace quorl
