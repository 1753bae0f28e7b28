#pragma once

#include "Bytes.h"

#include <sys/types.h>
#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace quorl {

/// Replaces the file's content as a whole: a temporary file of the right mode from its creation in
/// the same folder, written, fsynced, renamed over the path, the folder fsynced. A reader sees the
/// old content or the new, never a part. With a mode given the file ends up with that mode; without
/// one, mode and owner of the existing file are kept (a new file gets 0600). A symbolic link or
/// anything but a regular file in the path's place is refused, and nothing outside is touched.
/// Failure leaves the old file, removes the temporary one and gives the reason.
tl::expected<void, std::string> replaceFile(const std::string& path, ByteView content,
                                            std::optional<mode_t> mode = std::nullopt);

/// Reads a whole regular file of at most `limit` bytes; failure gives the reason.
tl::expected<Bytes, std::string> readFile(const std::string& path, std::size_t limit);

/// Removes what a replaceFile() of this path left beside it when its process was killed. Only for
/// whoever knows that nobody is replacing the file right now.
void removeLeftovers(const std::string& path);

}  // namespace quorl
