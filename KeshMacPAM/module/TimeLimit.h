#pragma once

#include <chrono>
#include <string_view>

namespace quorl::pam {

using Milliseconds = std::chrono::milliseconds;

/// Since the machine's start, suspension included: a lid closed at a prompt does not stop the
/// clock.
Milliseconds sinceBoot();

/// How long an attempt may take: the option `timeout`, or less where the host ends sooner by
/// itself. Zero when the host ends too soon for any answer.
Milliseconds timeLimit(std::chrono::seconds timeout, std::string_view service);

}  // namespace quorl::pam
