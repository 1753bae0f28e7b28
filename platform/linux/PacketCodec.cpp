#include "PacketCodec.h"

#include <algorithm>
#include <array>

namespace quorl {
namespace {

constexpr std::array<std::uint8_t, 4> magic{0x51, 0x4B, 0x4D, 0x31};
constexpr std::size_t wordSize = 4;
constexpr std::size_t headerSize = 4 * wordSize;

void appendWord(Bytes& bytes, std::uint32_t word) {
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<std::uint8_t>(word >> shift));
}

std::uint32_t wordAt(ByteView bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset]) |
           static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 16 |
           static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

}  // namespace

std::optional<Bytes> encodePacket(std::uint32_t msgid, std::span<const Bytes> components) {
    if (components.size() > maxComponents)
        return std::nullopt;
    std::size_t size = headerSize;
    for (const Bytes& component : components) {
        if (component.size() > maxPacketSize)
            return std::nullopt;
        size += wordSize + component.size();
    }
    if (size > maxPacketSize)
        return std::nullopt;

    Bytes packet;
    packet.reserve(size);
    packet.assign(magic.begin(), magic.end());
    appendWord(packet, msgid);
    appendWord(packet, static_cast<std::uint32_t>(components.size()));
    appendWord(packet, 0);
    for (const Bytes& component : components) {
        appendWord(packet, static_cast<std::uint32_t>(component.size()));
        packet.insert(packet.end(), component.begin(), component.end());
    }
    return packet;
}

tl::expected<PortMessage, std::string_view> decodePacket(ByteView packet) {
    using Refused = tl::unexpected<std::string_view>;
    if (packet.size() > maxPacketSize)
        return Refused("too long");
    if (packet.size() < headerSize)
        return Refused("shorter than its header");
    if (!std::ranges::equal(packet.first(magic.size()), magic))
        return Refused("wrong magic");
    const std::uint32_t count = wordAt(packet, 8);
    if (count > maxComponents)
        return Refused("too many components");
    if (wordAt(packet, 12) != 0)
        return Refused("reserved field in use");

    PortMessage message{.msgid = wordAt(packet, 4)};
    message.components.reserve(count);
    ByteView rest = packet.subspan(headerSize);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (rest.size() < wordSize)
            return Refused("lengths do not add up");
        const std::size_t length = wordAt(rest, 0);
        rest = rest.subspan(wordSize);
        if (rest.size() < length)
            return Refused("lengths do not add up");
        message.components.emplace_back(rest.begin(), rest.begin() + length);
        rest = rest.subspan(length);
    }
    if (!rest.empty())
        return Refused("lengths do not add up");
    return message;
}

}  // namespace quorl
