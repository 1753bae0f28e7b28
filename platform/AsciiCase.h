#pragma once

#include <string>
#include <string_view>

namespace quorl {

/// The text with its ASCII letters in the other case, whatever the machine's language; everything
/// else stands as it is.
std::string lowerCase(std::string_view text);
std::string upperCase(std::string_view text);

}  // namespace quorl
