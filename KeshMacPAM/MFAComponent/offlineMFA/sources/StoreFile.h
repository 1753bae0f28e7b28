#pragma once

#include "Bytes.h"
#include "Handle.h"

#include <tl/expected.hpp>

#include <string>

namespace quorl {

/// Holds the store's lock file while it lives. Waits 5 s at most for another holder, so that one
/// that hangs holds up no login; the system frees the lock of one that dies. Without it, said in a
/// log line, nothing may be changed: another's change would be lost.
class StoreLock {
  public:
    StoreLock();

    bool held() const { return held_; }

  private:
    FileDescriptor file_;
    bool held_ = false;
};

/// Makes an empty file of mode 0600 when nothing has the path; never follows a link.
bool createIfMissing(const std::string& path);

/// Gives a regular file the mode 0600, or 0640 and the group of the agent's account where the
/// support directory is shared with it; anything else at the path is left alone and is the failure.
tl::expected<void, std::string> makePrivate(const std::string& path);

/// Gives a regular file that cannot be read a second name, with ".unreadable" behind it, before it
/// is replaced: whoever repairs the machine may still want it. The latest one is kept, and a log
/// line tells. False when that fails.
bool keepAside(const std::string& path);

/// Replaces the file's content as a whole, with that same access, and clears away what killed
/// writers left beside it. The caller holds the lock. Failure leaves the old content and gives the
/// reason.
tl::expected<void, std::string> replacePrivately(const std::string& path, ByteView content);

}  // namespace quorl
