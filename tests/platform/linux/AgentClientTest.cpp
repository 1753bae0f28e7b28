// The client of the local channel against agents of every kind: good, mute, dying, planted.
#include "AgentChannel.h"
#include "AgentClient.h"
#include "KeyedArchive.h"
#include "SocketAddress.h"
#include "TestSandbox.h"

#include <sys/wait.h>

#include <functional>
#include <thread>

namespace quorl::test {
namespace {

using Kind = NoResult::Kind;
using std::chrono::milliseconds;

class AgentClientTest : public testing::Test {
  protected:
    AgentClientTest() { listen(path_); }
    void listen(const std::string& path) {
        listener_.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        const auto name = socketAddress(path);
        ASSERT_EQ(bind(listener_.get(), reinterpret_cast<const sockaddr*>(&*name), sizeof *name),
                  0);
        ASSERT_EQ(::listen(listener_.get(), 5), 0);
    }
    // Serves one request on a thread of its own: the reply port is the answer's to use and drop.
    template <class Answer>
    void serve(Answer answer) {
        agent_ = std::thread([this, answer] {
            const FileDescriptor peer(accept(listener_.get(), nullptr, nullptr));
            PacketReceiver receiver;
            for (;;) {
                auto message = receiver.receive(peer.get());
                if (!message && message.error().kind == NoMessage::nothingThere) {
                    std::this_thread::sleep_for(milliseconds(1));
                    continue;
                }
                if (message)
                    answer(std::move(*message));
                return;
            }
        });
    }
    AgentRequest::Result ask(milliseconds deadline = std::chrono::seconds(10)) {
        auto request = AgentRequest::send(address_, {{"OFFLINE_MFA", true}}, deadline);
        auto result = request ? request->wait(deadline)
                              : AgentRequest::Result(tl::unexpected(request.error()));
        if (agent_.joinable())
            agent_.join();
        return result;
    }

    const TestSandbox sandbox_;
    const AgentAddress address_{(sandbox_.root() / "run").string(), geteuid()};
    const std::string path_ = servicePath(address_.runtimeDir, bootstrapName);
    FileDescriptor listener_;
    std::thread agent_;
};

TEST_F(AgentClientTest, TakesTheResultBehindAFewOddPackets) {
    const Value result = {{"MFA_AUTH_RESULT", "SUCCESS"}};
    serve([&](const PortMessage& message) {
        EXPECT_EQ(message.msgid, 8888u);
        EXPECT_EQ(unarchive(message.components.at(0)), Value({{"OFFLINE_MFA", true}}));
        for (std::uint32_t odd = 1; odd < 10; ++odd)
            message.replyPort->send({.msgid = odd}, std::chrono::seconds(1));
        message.replyPort->send({.msgid = 8889, .components = {*archive(result)}},
                                std::chrono::seconds(1));
    });
    const auto answer = ask();
    ASSERT_TRUE(answer) << answer.error().reason;
    EXPECT_EQ(*answer, result);
}

TEST_F(AgentClientTest, GivesUpOnWhateverIsNoAnswer) {
    const struct {
        const char* what;
        std::function<void(SendRight&)> behaviour;
        Kind kind;
    } rows[] = {
        {"dies", [](SendRight&) {}, Kind::dropped},
        {"no archive",
         [](SendRight& port) {
             port.send({.msgid = 8889, .components = {toBytes("SUCCESS")}},
                       std::chrono::seconds(1));
         },
         Kind::unreadable},
        {"no component",
         [](SendRight& port) { port.send({.msgid = 8889}, std::chrono::seconds(1)); },
         Kind::unreadable},
        {"babbles",
         [](SendRight& port) {
             // Until the client has gone.
             while (port.send({.msgid = 7}, milliseconds(200))) {
             }
         },
         Kind::unreadable},
    };
    for (const auto& row : rows) {
        serve([&](PortMessage message) { row.behaviour(*message.replyPort); });
        const auto answer = ask();
        ASSERT_FALSE(answer) << row.what;
        EXPECT_EQ(answer.error().kind, row.kind) << row.what << ": " << answer.error().reason;
    }
    SendRightPtr kept;
    serve([&](PortMessage message) { kept = std::move(message.replyPort); });
    const auto late = ask(milliseconds(100));
    ASSERT_FALSE(late);
    EXPECT_EQ(late.error().kind, Kind::timeUp);
    // The request has gone with its result: the agent sees that nobody waits any longer.
    EXPECT_FALSE(kept->send({.msgid = 8889}, milliseconds(10)));
}

TEST_F(AgentClientTest, AsksNobodyButTheAgent) {
    const auto refusal = [&](const AgentAddress& address) {
        EXPECT_FALSE(agentListens(address));
        const auto request = AgentRequest::send(address, Value::object(), milliseconds(100));
        return request ? "sent" : request.error().reason;
    };
    EXPECT_TRUE(agentListens(address_));
    AgentAddress another = address_;
    another.account += 1;
    EXPECT_NE(refusal(another).find("not to the agent's account"), std::string::npos);

    // A link to a socket of the right account, which would be handed the request.
    rename(path_.c_str(), (path_ + ".real").c_str());
    ASSERT_EQ(symlink((path_ + ".real").c_str(), path_.c_str()), 0);
    EXPECT_NE(refusal(address_).find("not a socket"), std::string::npos);
    unlink(path_.c_str());
    EXPECT_NE(refusal(address_).find("No such file"), std::string::npos);

    if (geteuid() != 0)
        GTEST_SKIP() << "the rest needs an account beside root's";
    // The file has the right owner, but who listens behind it is somebody else.
    const pid_t other = fork();
    if (other == 0) {
        chmod(address_.runtimeDir.c_str(), 0777);
        chmod(sandbox_.root().c_str(), 0777);
        if (setuid(65534) != 0)
            _exit(1);
        listen(path_);
        pause();
    }
    ASSERT_TRUE(waitFor([&] { return access(path_.c_str(), F_OK) == 0; }));
    EXPECT_EQ(chown(path_.c_str(), 0, 0), 0);
    EXPECT_NE(refusal(address_).find("the other end"), std::string::npos);
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
}

TEST_F(AgentClientTest, IsNotHeldUpByAFullQueue) {
    // Connections that nobody accepts, until there is no room for another.
    std::vector<FileDescriptor> waiting;
    const auto name = socketAddress(path_);
    for (;;) {
        FileDescriptor one(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (connect(one.get(), reinterpret_cast<const sockaddr*>(&*name), sizeof *name) != 0)
            break;
        waiting.push_back(std::move(one));
    }
    const auto answer = ask(milliseconds(50));
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error().kind, Kind::unreachable);
}

}  // namespace
}  // namespace quorl::test
