#pragma once

#include "Value.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace quorl {

/// What a JSON text may hold at most: bytes, and levels of brackets.
struct JsonLimits {
    std::size_t bytes;
    int depth;
};

/// Parses JSON text (RFC 8259) that comes from outside; nothing when it is malformed or beyond the
/// limits. Whoever copies, prints or destroys a value recurses, so depth is measured before the
/// text is parsed.
std::optional<Value> parseJSON(std::string_view text, const JsonLimits& limits);

/// How deep brackets nest in JSON text, strings passed over; of malformed JSON it says no more than
/// that.
int jsonNesting(std::string_view text);

}  // namespace quorl
