#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quorl {

/// Owned bytes, and a view of somebody else's.
using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

inline ByteView asBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
inline std::string_view asText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline Bytes toBytes(std::string_view text) {
    return {text.begin(), text.end()};
}
inline std::string toString(ByteView bytes) {
    return std::string(asText(bytes));
}

/// The value of a hexadecimal digit of either case; nothing for any other character.
constexpr std::optional<std::uint8_t> hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<std::uint8_t>(c - '0');
    if (c >= 'a' && c <= 'f')
        return static_cast<std::uint8_t>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F')
        return static_cast<std::uint8_t>(c - 'A' + 10);
    return std::nullopt;
}

}  // namespace quorl
