#pragma once

#include <string_view>

namespace quorl::pam {

/// What the module says itself, when its helper left it without a verdict.
enum class Text { CannotVerify, TooLate };

/// The text in the language that a locale such as "de_DE.UTF-8" begins with; English for any other.
const char* textFor(Text text, std::string_view locale);

/// Whether the value names a locale and nothing else: under sudo it is the caller's.
bool isLocale(std::string_view value);

}  // namespace quorl::pam
