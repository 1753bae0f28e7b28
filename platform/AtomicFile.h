#pragma once

#include "Bytes.h"

#include <sys/types.h>
#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace quorl {

/// Who may use a file. The group stays the process's own where none is named.
struct FileAccess {
    FileAccess(mode_t fileMode, std::optional<gid_t> fileGroup = std::nullopt)
        : mode(fileMode), group(fileGroup) {}
    mode_t mode;
    std::optional<gid_t> group;
};

/// Replaces the file's content as a whole: a temporary file of the right mode from its creation in
/// the same folder, written, fsynced, renamed over the path, the folder fsynced. A reader sees the
/// old content or the new, never a part. With an access given the file ends up with it; without
/// one, mode and owner of the existing file are kept (a new file gets 0600). A symbolic link or
/// anything but a regular file in the path's place is refused, and nothing outside is touched.
/// Failure leaves the old file, removes the temporary one and gives the reason.
tl::expected<void, std::string> replaceFile(const std::string& path, ByteView content,
                                            std::optional<FileAccess> access = std::nullopt);

/// The same for a file that holds secrets: owner and group are kept, others lose every access, and
/// so does the group unless it is the agent account's, which goes on reading. A log line says when
/// the file was open to more.
tl::expected<void, std::string> replacePrivateFile(const std::string& path, ByteView content);

/// Reads a whole regular file of at most `limit` bytes; failure gives the reason.
tl::expected<Bytes, std::string> readFile(const std::string& path, std::size_t limit);

/// Removes what a replaceFile() of this path left beside it when its process was killed. Only for
/// whoever knows that nobody is replacing the file right now.
void removeLeftovers(const std::string& path);

}  // namespace quorl
