#pragma once

#include "Bytes.h"
#include "Value.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace quorl {

/// Reads a property-list file, XML or binary, of at most 4 MiB and no deeper than 64 levels. Dates
/// are read as text (ISO 8601), data as the binary kind. For files of this machine alone: bytes of
/// a peer go through KeyedArchive. Failure gives the reason as text.
tl::expected<Value, std::string> readPropertyListFile(const std::string& path);

/// The same for bytes that were read already.
tl::expected<Value, std::string> parsePropertyList(ByteView content);

/// The value as an XML property list; a null is left out. Nothing when it holds what XML cannot
/// carry: control characters or invalid UTF-8, numbers that are not finite or over 63 bits, more
/// than 64 levels.
std::optional<std::string> xmlPropertyList(const Value& value);

/// Writes the value as an XML property list in place of the file: temporary file, fsync, rename,
/// fsync of the folder; owner and mode of an existing file are kept, a new one has mode 0600. On
/// failure the old file stays and the reason is given.
tl::expected<void, std::string> writePropertyListFile(const std::string& path, const Value& value);

}  // namespace quorl
