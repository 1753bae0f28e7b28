#include "PacketCodec.h"
#include "PollRunLoop.h"
#include "SocketPorts.h"
#include "TestSandbox.h"

#include <thread>

namespace quorl::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class SocketPortsTest : public testing::Test {
  protected:
    SocketPortsTest() {
        port_->setHandler([this](PortMessage message) { received_.push_back(std::move(message)); });
        port_->addToRunLoop(loop_);
    }
    bool runUntil(std::size_t count) {
        return waitFor([&] {
            loop_.runFor(milliseconds(5));
            return received_.size() >= count;
        });
    }

    PollRunLoop loop_;
    std::unique_ptr<SocketPort> port_ = SocketPort::make();
    std::vector<PortMessage> received_;
};

TEST_F(SocketPortsTest, MessagesOfAnotherThreadArriveInOrderAndWhole) {
    const Bytes greatest(maxPacketSize - 20, 0xA5);
    std::thread sender([right = port_->sendRight(), &greatest] {
        for (std::uint32_t id = 1; id <= 50; ++id)
            EXPECT_TRUE(right->send({.msgid = id, .components = {greatest}}, seconds(10)));
    });
    EXPECT_TRUE(runUntil(50));
    sender.join();
    for (std::uint32_t id = 1; id <= 50; ++id) {
        EXPECT_EQ(received_[id - 1].msgid, id);
        EXPECT_EQ(received_[id - 1].components, std::vector<Bytes>{greatest});
    }
}

TEST_F(SocketPortsTest, ASendGivesUpAtItsDeadlineAndGoesOnWhenRoomIsMade) {
    const PortMessage large{.msgid = 1, .components = {Bytes(100'000)}};
    const SendRightPtr right = port_->sendRight();
    std::size_t sent = 0;
    while (right->send(large, milliseconds(0)))
        ASSERT_LT(++sent, 1000u);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(right->send(large, milliseconds(50)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(50));

    bool outcome = false;
    std::thread sender([&] { outcome = right->send(large, seconds(10)); });
    EXPECT_TRUE(runUntil(sent + 1));
    sender.join();
    EXPECT_TRUE(outcome);
}

}  // namespace
}  // namespace quorl::test
