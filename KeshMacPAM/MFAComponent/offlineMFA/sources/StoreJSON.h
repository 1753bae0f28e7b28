#pragma once

#include "Value.h"

#include <tl/expected.hpp>

#include <string>
#include <string_view>

namespace quorl {

/// Whether a user's record is one to store: 16 levels deep at most, 64 KiB of UTF-8 text.
bool fitsStore(const Value& record);

/// Parses the store's text: one dictionary. Values nested deeper than the store allows are left
/// out with a log line. The reason of a failure never quotes the text, which holds secrets.
tl::expected<Value, std::string> parseStoreJSON(std::string_view text);

/// The dictionary as compact JSON; failure (a text that is no UTF-8) gives the reason. The
/// caller wipes the text; no other copy of it is left behind.
tl::expected<std::string, std::string> printStoreJSON(const Value& dictionary);

}  // namespace quorl
