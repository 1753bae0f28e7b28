#pragma once

#include "Value.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace quorl {

/// The number under the key, fractions cut: 0 or more, written as a number or as decimal text.
/// Nothing when it is absent, negative or of any other kind: what limits a user must never be read
/// as 0 because it cannot be read at all.
std::optional<std::int64_t> recordNumber(const Value& data, std::string_view key);

}  // namespace quorl
