#pragma once

#include "Bytes.h"
#include "Handle.h"

#include <tl/expected.hpp>

#include <string>

namespace quorl {

/// Holds the store's lock file while it lives. Waits for as long as another holder works: the
/// holders' work is bounded, and the system frees the lock of one that dies. Where no lock can be
/// made (a folder that cannot be written), a log line says so and the work goes on without: each
/// write still replaces the file as a whole, only a change of the same moment could be lost.
class StoreLock {
  public:
    StoreLock();

  private:
    FileDescriptor file_;
};

/// Makes an empty file of mode 0600 when nothing has the path; never follows a link.
bool createIfMissing(const std::string& path);

/// Gives a regular file the mode 0600; anything else at the path is left alone and is the failure.
tl::expected<void, std::string> makePrivate(const std::string& path);

/// Replaces the file's content as a whole, with mode 0600, and clears away what killed writers left
/// beside it. The caller holds the lock. Failure leaves the old content and gives the reason.
tl::expected<void, std::string> replacePrivately(const std::string& path, ByteView content);

}  // namespace quorl
