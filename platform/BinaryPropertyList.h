#pragma once

#include "Bytes.h"
#include "Value.h"

#include <optional>

namespace quorl {

/// Reads a binary property list of this machine (at most 4 MiB, 64 levels, 100,000 values and
/// 16 MiB decoded, counted per visit). Dates become text, data the binary kind. Nothing when the
/// bytes break the format or a limit.
std::optional<Value> parseBinaryPropertyList(ByteView content);

}  // namespace quorl
