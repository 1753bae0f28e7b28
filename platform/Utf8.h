#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorl {

/// The code point of UTF-8 text (RFC 3629) at `at`, which moves behind it; -1 where the text is
/// invalid, with `at` unchanged.
std::int32_t nextCodePoint(std::string_view text, std::size_t& at);

void appendUtf8(std::uint32_t codePoint, std::string& out);

/// Valid UTF-8 (RFC 3629).
bool isUtf8(std::string_view text);

/// Valid UTF-8 that holds no NUL.
bool isPlainText(std::string_view text);

/// The largest offset up to `at` that lies between two characters of UTF-8 text, for cutting it.
std::size_t startOfCharacter(std::string_view text, std::size_t at);

/// How many bytes at the front are ASCII.
std::size_t asciiPrefix(std::string_view text);

inline bool isAscii(std::string_view text) {
    return asciiPrefix(text) == text.size();
}

}  // namespace quorl
