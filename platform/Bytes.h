#pragma once

#include <cstdint>
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

}  // namespace quorl
