#include "PacketCodec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace quorl::test {
namespace {

const Bytes twoComponents{0x51, 0x4B, 0x4D, 0x31,  // magic
                          0xB9, 0x22, 0x00, 0x00,  // 8889
                          0x02, 0x00, 0x00, 0x00,  // components
                          0x00, 0x00, 0x00, 0x00,  // reserved
                          0x03, 0x00, 0x00, 0x00, 'a', 0x00, 'c', 0x00, 0x00, 0x00, 0x00};

Bytes with(std::size_t offset, std::initializer_list<std::uint8_t> replacement) {
    Bytes packet = twoComponents;
    std::copy(replacement.begin(), replacement.end(), packet.begin() + offset);
    return packet;
}

Bytes ofSize(std::size_t size) {
    Bytes packet = twoComponents;
    packet.resize(size);
    return packet;
}

TEST(PacketCodec, WritesAndReadsTheLayoutToTheByte) {
    const std::vector<Bytes> components{{'a', 0, 'c'}, {}};
    EXPECT_EQ(encodePacket(8889, components), twoComponents);
    const auto message = decodePacket(twoComponents);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->msgid, 8889u);
    EXPECT_EQ(message->components, components);
    EXPECT_EQ(message->replyPort, nullptr);
}

TEST(PacketCodec, RefusesWhatBreaksARule) {
    const struct {
        const char* name;
        Bytes packet;
        const char* reason;
    } cases[] = {
        {"empty", {}, "shorter than its header"},
        {"header cut", ofSize(15), "shorter than its header"},
        {"first byte of the magic", with(0, {0x52}), "wrong magic"},
        {"seventeen components", with(8, {17}), "too many components"},
        {"reserved field", with(12, {0, 0, 0, 1}), "reserved field in use"},
        {"component cut", ofSize(22), "lengths do not add up"},
        {"length cut", ofSize(26), "lengths do not add up"},
        {"length past the end", with(16, {8}), "lengths do not add up"},
        {"greatest length", with(16, {0xFF, 0xFF, 0xFF, 0xFF}), "lengths do not add up"},
        {"fewer components than bytes", with(8, {1}), "lengths do not add up"},
        {"more components than bytes", with(8, {3}), "lengths do not add up"},
        {"too long", ofSize(maxPacketSize + 1), "too long"},
    };
    for (const auto& test : cases) {
        const auto message = decodePacket(test.packet);
        ASSERT_FALSE(message) << test.name;
        EXPECT_EQ(message.error(), test.reason) << test.name;
    }
}

TEST(PacketCodec, TakesTheGreatestPacketAndNothingAbove) {
    const std::vector<Bytes> full(16, Bytes((maxPacketSize - 16) / 16 - 4, 7));
    const auto packet = encodePacket(1, full);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->size(), maxPacketSize);
    const auto message = decodePacket(*packet);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->components, full);

    const std::vector<Bytes> tooLong{Bytes(maxPacketSize - 20 + 1)};
    EXPECT_FALSE(encodePacket(1, tooLong));
    EXPECT_FALSE(encodePacket(1, std::vector<Bytes>(17)));
}

}  // namespace
}  // namespace quorl::test
