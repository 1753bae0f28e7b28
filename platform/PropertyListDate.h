#pragma once

#include <optional>
#include <string>

namespace quorl {

/// A property list's date, seconds since 2001-01-01 UTC, as ISO 8601 text; nothing when the number
/// is not finite or lies beyond the years -9999 to 9999.
std::optional<std::string> propertyListDateText(double seconds);

}  // namespace quorl
