#pragma once

#include <string_view>

namespace quorl::pam {

// std::string_view's own look at a prefix or suffix can throw, and so needs the run-time library.
inline bool startsWith(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && std::string_view(text.data(), prefix.size()) == prefix;
}
inline bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() &&
           std::string_view(text.data() + text.size() - suffix.size(), suffix.size()) == suffix;
}

/// Without blanks at either end.
std::string_view trimmed(std::string_view text);

/// Cuts the text before the separator off the front of `rest`, the separator with it.
std::string_view cutField(std::string_view& rest, char separator);

/// A decimal number without sign that fills the whole text; -1 for anything else.
long long wholeNumber(std::string_view text);

}  // namespace quorl::pam
