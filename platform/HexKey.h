#pragma once

#include "Bytes.h"

#include <array>
#include <optional>
#include <string_view>

namespace quorl {

/// A key of AES-256.
using AesKey = std::array<std::uint8_t, 32>;

/// The key that 64 hexadecimal digits of either case spell; nothing for any other text: a key
/// padded or cut would be guessable, or another than the one that was meant.
constexpr std::optional<AesKey> keyFromHex(std::string_view hex) {
    AesKey key{};
    if (hex.size() != 2 * key.size())
        return std::nullopt;
    for (std::size_t i = 0; i < key.size(); ++i) {
        const auto high = hexDigit(hex[2 * i]);
        const auto low = hexDigit(hex[2 * i + 1]);
        if (!high || !low)
            return std::nullopt;
        key[i] = static_cast<std::uint8_t>(*high << 4 | *low);
    }
    return key;
}

}  // namespace quorl
