#pragma once

#include "Bytes.h"
#include "Value.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace quorl {

/// The binary kind's subtype of a date, whose bytes are its ISO 8601 text: a kind of its own, so
/// that it is no text to whoever looks for one, and is written back as the date that it was.
inline constexpr std::uint8_t dateSubtype = 1;
Value dateValue(std::string_view iso8601);

/// Reads a property-list file, XML or binary, of at most 4 MiB and no deeper than 64 levels. Data
/// is read as the binary kind, a UID as the dictionary that XML holds in its place. For files of
/// this machine alone: bytes of a peer go through KeyedArchive. Failure gives the reason as text.
tl::expected<Value, std::string> readPropertyListFile(const std::string& path);

/// The same for bytes that were read already.
tl::expected<Value, std::string> parsePropertyList(ByteView content);

/// The value as an XML property list; a null is left out. Nothing when it holds what XML cannot
/// carry: control characters or invalid UTF-8, numbers that are not finite, more than 64 levels.
std::optional<std::string> xmlPropertyList(const Value& value);

/// Writes the value as an XML property list in place of the file: see replacePrivateFile. What
/// readPropertyListFile would refuse is not written. On failure the old file stays and the reason
/// is given.
tl::expected<void, std::string> writePropertyListFile(const std::string& path, const Value& value);

}  // namespace quorl
