#include "Utf8.h"

#include <algorithm>
#include <cstring>

namespace quorl {

std::int32_t nextCodePoint(std::string_view text, std::size_t& at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const std::uint32_t first = byte(at);
    const std::size_t length = first < 0x80 ? 1 : first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if ((first >= 0x80 && first < 0xc2) || first > 0xf4 || text.size() - at < length)
        return -1;
    std::uint32_t point = length == 1 ? first : first & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const std::uint32_t next = byte(at + i);
        if (next >> 6 != 2)
            return -1;
        point = point << 6 | (next & 0x3f);
    }
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < smallest[length] || point > 0x10ffff || (point >= 0xd800 && point < 0xe000))
        return -1;
    at += length;
    return static_cast<std::int32_t>(point);
}

void appendUtf8(std::uint32_t codePoint, std::string& out) {
    const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(byte); };
    const auto putRest = [&](int bytes) {
        while (bytes-- > 0)
            put(0x80 | (codePoint >> (6 * bytes) & 0x3f));
    };
    if (codePoint < 0x80) {
        put(codePoint);
    } else if (codePoint < 0x800) {
        put(0xc0 | codePoint >> 6);
        putRest(1);
    } else if (codePoint < 0x10000) {
        put(0xe0 | codePoint >> 12);
        putRest(2);
    } else {
        put(0xf0 | codePoint >> 18);
        putRest(3);
    }
}

bool isPlainText(std::string_view text) {
    return text.find('\0') == text.npos && isUtf8(text);
}

bool isUtf8(std::string_view text) {
    for (std::size_t at = asciiPrefix(text); at < text.size();) {
        if (nextCodePoint(text, at) < 0)
            return false;
    }
    return true;
}

std::size_t startOfCharacter(std::string_view text, std::size_t at) {
    while (at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80)
        --at;
    return std::min(at, text.size());
}

std::size_t asciiPrefix(std::string_view text) {
    constexpr std::uint64_t highBits = 0x8080808080808080;
    std::size_t at = 0;
    for (std::uint64_t word = 0; text.size() - at >= sizeof word; at += sizeof word) {
        std::memcpy(&word, text.data() + at, sizeof word);
        if (word & highBits)
            break;
    }
    while (at < text.size() && static_cast<unsigned char>(text[at]) < 0x80)
        ++at;
    return at;
}

}  // namespace quorl
