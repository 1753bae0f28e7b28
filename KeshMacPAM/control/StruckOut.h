#pragma once

#include <string>
#include <string_view>

namespace quorl::control {

/// A line of a log with everything struck out that could be a key, a code or a token: what stands
/// behind such a name, numbers of 6 to 10 digits, long words with digits in them.
/// Rather too much than too little. Control characters are escaped.
std::string struckOut(std::string_view line);

}  // namespace quorl::control
