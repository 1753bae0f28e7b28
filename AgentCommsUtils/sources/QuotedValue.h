#pragma once

#include <string>
#include <string_view>

namespace quorl {

/// The script, which holds the value between single quotes as it stands. A value with a quote of
/// its own ends that literal early and breaks the script; then what is returned fails as a whole,
/// so that no part of the value ever runs.
std::string guardQuotedValue(std::string script, std::string_view value);

}  // namespace quorl
