#pragma once

#include "Bytes.h"
#include "Value.h"

#include <optional>

namespace quorl {

/// Reads a keyed archive (binary property list, `$archiver` "NSKeyedArchiver", version 100000)
/// whose root is a dictionary. All or nothing: whatever breaks the format or a bound (1 MiB of
/// input, plist depth 8, object depth 32, 20,000 values or 4 MiB decoded counted per visit, cycles,
/// unknown classes, NUL or invalid text, duplicate keys, trailing bytes) gives nothing. Dates
/// become text.
std::optional<Value> unarchive(ByteView archive);

/// Writes a dictionary as a keyed archive that the platform's own unarchiver reads. Nothing when
/// the value is no dictionary or holds what the format cannot carry (invalid UTF-8, NUL, the text
/// "$null", a number that is not finite).
std::optional<Bytes> archive(const Value& dictionary);

}  // namespace quorl
