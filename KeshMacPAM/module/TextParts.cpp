#include "TextParts.h"

#include <cstddef>

namespace quorl::pam {

std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view cutField(std::string_view& rest, char separator) {
    const std::size_t at = rest.find(separator);
    const std::string_view field(rest.data(), at == rest.npos ? rest.size() : at);
    rest.remove_prefix(at == rest.npos ? rest.size() : at + 1);
    return field;
}

long long wholeNumber(std::string_view text) {
    if (text.empty() || text.size() > 15)
        return -1;
    long long number = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9')
            return -1;
        number = number * 10 + (digit - '0');
    }
    return number;
}

}  // namespace quorl::pam
