#include "AgentMessagingService.h"
#include "KeyedArchive.h"
#include "LinuxPortSystem.h"
#include "PacketSocket.h"
#include "TestSandbox.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <sstream>
#include <thread>

namespace quorl::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

const Bytes noArchive{'r', 'a', 'w', 0, 0xFF};

// Connects, sends one message, and waits for what comes to its reply port.
class Client {
  public:
    enum class ReplyPort { none, own };

    Client(const std::string& folder, PortMessage message, ReplyPort reply = ReplyPort::own) {
        auto service = connectToService(folder, "com.tav.quorl.QUORLLoginAgent", seconds(5));
        EXPECT_TRUE(service);
        auto ends = makeSocketPair();
        socket_ = std::move(ends->first);
        if (reply == ReplyPort::own)
            message.replyPort = std::make_shared<SocketSendRight>(std::move(ends->second));
        EXPECT_TRUE((*service)->send(message, seconds(5)));
        connection_ = *service;
    }
    tl::expected<PortMessage, ReceiveFailure> receive() {
        pollfd entry{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&entry, 1, 10'000), 1);
        return PacketReceiver().receive(socket_.get());
    }
    // The components of the next message, which must be a result.
    std::vector<Bytes> result() {
        auto message = receive();
        EXPECT_TRUE(message && message->msgid == 8889);
        return message ? message->components : std::vector<Bytes>{};
    }
    bool readsEndOfFile() {
        const auto message = receive();
        return !message && message.error().kind == NoMessage::closedByPeer;
    }

  private:
    FileDescriptor socket_;
    SendRightPtr connection_;
};

// The relay on its thread, the application played by the test's own.
class RelayTest : public testing::Test {
  protected:
    ~RelayTest() override { endRelay(); }

    void startRelay() {
        appPort_->setHandler([this](PortMessage message) { atApp_.push_back(std::move(message)); });
        appPort_->addToRunLoop(*loop_);
        relay_ = std::thread([this] { service_.run(appPort_->sendRight()); });
        ASSERT_TRUE(waitFor([&] { return log_.has("Server running..."); }));
        ASSERT_TRUE(appHas(1));
    }
    void endRelay() {
        service_.isServiceDone = true;
        if (relay_.joinable())
            relay_.join();
    }
    // Serves the application's port until that many messages came to it.
    bool appHas(std::size_t count) {
        return waitFor([&] {
            loop_->runFor(milliseconds(2));
            return atApp_.size() >= count;
        });
    }
    // Sends a result as the application does: to the port that the latest request brought.
    void answer(std::vector<Bytes> components) {
        EXPECT_TRUE(atApp_.back().replyPort->send(
            {.msgid = 8889, .components = std::move(components)}, seconds(5)));
    }
    Client request(Bytes body) { return {folder_, {.msgid = 8888, .components = {body}}}; }
    std::vector<std::string> logged() const {
        std::vector<std::string> messages;
        std::istringstream lines(log_.text());
        for (std::string line; std::getline(lines, line);)
            messages.push_back(line.substr(line.find("] ") + 2));
        return messages;
    }

    TestSandbox sandbox_;
    LogCapture log_;
    std::string folder_ = (sandbox_.root() / "run").string();
    std::string path_ = folder_ + "/com.tav.quorl.QUORLLoginAgent";
    LinuxPortSystem ports_{folder_, {.ownAccount = true}};
    std::unique_ptr<RunLoop> loop_ = ports_.makeRunLoop();
    std::unique_ptr<Port> appPort_ = ports_.makePort();
    std::vector<PortMessage> atApp_;
    AgentMessagingService service_{ports_};
    std::thread relay_;
};

TEST_F(RelayTest, PassesRequestAndResultUnchangedAndLogsEachStep) {
    startRelay();
    Client client = request(noArchive);
    ASSERT_TRUE(appHas(2));
    EXPECT_EQ(atApp_[0].msgid, 10001u);
    EXPECT_TRUE(atApp_[0].components.empty() && atApp_[0].replyPort);
    EXPECT_EQ(atApp_[1].msgid, 10002u);
    EXPECT_EQ(atApp_[1].components, std::vector<Bytes>{noArchive});
    EXPECT_TRUE(atApp_[1].replyPort);
    answer({{1, 0, 2}});
    EXPECT_EQ(client.result(), (std::vector<Bytes>{{1, 0, 2}}));
    endRelay();
    EXPECT_THAT(logged(), ElementsAre("AgentMessagingService : sendMsgToApp - 10001",
                                      "AgentMessagingService : Message sent to the app..",
                                      "AgentMessagingService : Server running...",
                                      "AgentMessagingService : handlePortMessage got message",
                                      "AgentMessagingService : received Request from pam_kesh",
                                      "(null)", "AgentMessagingService : sendMsgToApp - 10002",
                                      "AgentMessagingService : Message sent to the app..",
                                      "AgentMessagingService : handlePortMessage got message",
                                      "AgentMessagingService : sending response to pam_kesh",
                                      "AgentMessagingService : sendMsgToClient - 8889",
                                      "AgentMessagingService : Message sent to MFA client..",
                                      "AgentMessagingService : Server exiting..."));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(RelayTest, WhatIsNoWholeRequestIsNotForwarded) {
    startRelay();
    Client waiting = request({1});
    ASSERT_TRUE(appHas(2));
    const Client unknown(folder_, {.msgid = 4711, .components = {{2}}});
    const Client withoutPort(folder_, {.msgid = 8888, .components = {{3}}},
                             Client::ReplyPort::none);
    // From the public socket nobody can answer in the application's name.
    const Client forger(folder_, {.msgid = 8889, .components = {{4}}});
    ASSERT_TRUE(waitFor([&] {
        return log_.count("handlePortMessage got message") == 4 &&
               log_.has("result from outside dropped");
    }));
    answer({});  // goes no further
    answer({{5}});
    EXPECT_EQ(waiting.result(), std::vector<Bytes>{{5}});

    // One without content only takes over the answer.
    Client silent(folder_, {.msgid = 8888});
    EXPECT_TRUE(waiting.readsEndOfFile());
    answer({{6}});
    EXPECT_EQ(silent.result(), std::vector<Bytes>{{6}});
    EXPECT_EQ(log_.count("sendMsgToApp - 10002"), 1u);
}

// The check-in comes before the name exists, or a request could come before it.
TEST_F(RelayTest, EndsAtOnceWhenTheNameIsTaken) {
    const auto holder = ports_.servicePortWithName("com.tav.quorl.QUORLLoginAgent");
    ASSERT_TRUE(holder);
    service_.run(appPort_->sendRight());
    EXPECT_THAT(logged(),
                ElementsAre("AgentMessagingService : sendMsgToApp - 10001",
                            "AgentMessagingService : Message sent to the app..",
                            "LinuxPortSystem : the name com.tav.quorl.QUORLLoginAgent cannot be "
                            "had: another agent serves it",
                            "AgentMessagingService : Unable to open MFA Server port."));
}

TEST_F(RelayTest, ARequestToEndThatComesFirstIsNotLost) {
    service_.isServiceDone = true;
    service_.run(appPort_->sendRight());
    EXPECT_TRUE(log_.has("AgentMessagingService : Server exiting..."));
}

}  // namespace
}  // namespace quorl::test
