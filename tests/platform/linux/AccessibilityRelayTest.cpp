#include "AccessibilityBus.h"
#include "Relay.h"
#include "Subprocess.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <thread>

namespace quorl::test {
namespace {

using State = BusHandshake::State;
using namespace std::string_literals;

TEST(BusHandshake, EachWayOfClientsIsAnswered) {
    const struct {
        std::string said;
        State state;
        std::string replies;
        std::string rest;
    } cases[] = {
        {"\0AUTH EXTERNAL 30\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\nl\1\0"s, State::begun,
         "OK 0a\r\nERROR\r\n", "l\1\0"s},
        {"\0AUTH\r\nAUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"s, State::begun,
         "REJECTED EXTERNAL\r\nDATA\r\nOK 0a\r\n", ""},
        {"\0AUTH ANONYMOUS\r\n"s, State::talking, "REJECTED EXTERNAL\r\n", ""},
        {"\0AUTH EXTERNAL 30\r\nCANCEL\r\nBEGIN\r\n"s, State::refused,
         "OK 0a\r\nREJECTED EXTERNAL\r\n", ""},
        {"\0DATA 30\r\nBEGIN\r\n"s, State::refused, "ERROR\r\n", ""},
        {"\0BEGIN\r\n"s, State::refused, "", ""},
        {"AUTH EXTERNAL 30\r\n", State::refused, "", ""},
        {"\0"s + std::string(600, 'A'), State::refused, "", ""},
    };
    for (const auto& [said, state, replies, rest] : cases) {
        // Whole, and byte by byte.
        for (const std::size_t step : {said.size(), std::size_t(1)}) {
            SCOPED_TRACE(said.substr(0, 40));
            BusHandshake handshake("0a");
            State reached = State::talking;
            std::size_t at = 0;
            for (; at < said.size() && reached == State::talking; at += step)
                reached = handshake.take(said.substr(at, step));
            EXPECT_EQ(reached, state);
            EXPECT_EQ(handshake.takeReply(), replies);
            if (state == State::begun) {
                EXPECT_EQ(handshake.takeRest() + said.substr(std::min(at, said.size())), rest);
            }
        }
    }
    BusHandshake patient("0a");
    State state = patient.take("\0"s);
    for (int lines = 0; lines < 100 && state == State::talking; ++lines)
        state = patient.take("AUTH\r\n");
    EXPECT_EQ(state, State::refused);
}

class RelayTest : public testing::Test {
  protected:
    void serve(uid_t served) {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        strcpy(address.sun_path, relayPath.c_str());
        FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
        ASSERT_EQ(listen(listener.get(), 4), 0);
        thread_ = std::thread([this, served, socket = std::move(listener)]() mutable {
            Relay relay({.listener = std::move(socket), .served = served, .busAddress = [this] {
                             return "unix:path=" + busPath;
                         }});
            while (!done_)
                relay.step(20);
        });
    }
    void startBus() {
        bus_ = std::make_unique<Subprocess>(Subprocess::Options{
            .command = {"dbus-daemon", "--nofork", "--address=unix:path=" + busPath,
                        "--config-file=/usr/share/defaults/at-spi2/accessibility.conf"}});
        const uid_t ours[] = {geteuid()};
        ASSERT_TRUE(waitFor([&] { return !!admittedBy({BusSocket::Kind::file, busPath}, ours); }));
    }
    /// What a real client makes of the bus behind the relay.
    std::string names() {
        return outputOf({"dbus-send", "--bus=unix:path=" + relayPath, "--print-reply",
                         "--dest=org.freedesktop.DBus", "/", "org.freedesktop.DBus.ListNames"});
    }
    void TearDown() override {
        done_ = true;
        if (thread_.joinable())
            thread_.join();
    }

    TestSandbox sandbox;
    const std::string relayPath = sandbox.root() / "relay";
    const std::string busPath = sandbox.root() / "bus";

  private:
    std::atomic<bool> done_ = false;
    std::thread thread_;
    std::unique_ptr<Subprocess> bus_;
};

TEST_F(RelayTest, ClientsOfTheServedAccountReachTheBusWhenThereIsOne) {
    serve(geteuid());
    const uid_t ours[] = {geteuid()};
    EXPECT_FALSE(admittedBy({BusSocket::Kind::file, relayPath}, ours));
    startBus();
    EXPECT_TRUE(admittedBy({BusSocket::Kind::file, relayPath}, ours));
    for (int client = 0; client < 3; ++client)
        EXPECT_NE(names().find("org.freedesktop.DBus"), std::string::npos);
}

TEST_F(RelayTest, AnotherAccountsClientsAreTurnedAway) {
    serve(geteuid() + 1);
    startBus();
    EXPECT_EQ(names(), "");
}

}  // namespace
}  // namespace quorl::test
