#include "LinuxPortSystem.h"
#include "Log.h"
#include "ServicePort.h"
#include "Subprocess.h"
#include "TestSandbox.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <deque>
#include <sstream>
#include <thread>

namespace quorl::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* serviceName = "service";

std::size_t openDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                      std::filesystem::directory_iterator()));
}

// Whether a timer of this process is running.
bool timerRuns() {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        const std::string info = TestSandbox::read(entry.path());
        if (info.find("it_value:") != std::string::npos &&
            info.find("it_value: (0, 0)") == std::string::npos)
            return true;
    }
    return false;
}

// A client's connection, made with nothing but the system's own calls.
class Connection {
  public:
    explicit Connection(const std::string& path)
        : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    // A message with that id and without components.
    void say(std::uint8_t id) {
        const std::uint8_t packet[16] = {0x51, 0x4B, 0x4D, 0x31, id};
        EXPECT_EQ(send(socket_.get(), packet, sizeof packet, MSG_NOSIGNAL),
                  static_cast<ssize_t>(sizeof packet));
    }
    bool closes(milliseconds deadline = seconds(10)) {
        pollfd entry{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        char byte = 0;
        return poll(&entry, 1, static_cast<int>(deadline.count())) == 1 &&
               recv(socket_.get(), &byte, 1, MSG_DONTWAIT) <= 0;
    }
    bool isOpen() { return !closes(milliseconds(0)); }

  private:
    FileDescriptor socket_;
};

// A service on a thread of its own that counts its messages and returns each to its reply port.
class ServicePortTest : public testing::Test {
  protected:
    ~ServicePortTest() override { stop(); }

    void start(ServiceLimits limits = {}) {
        limits.ownAccount = true;
        ports_ = std::make_unique<LinuxPortSystem>(folder_, limits);
        service_ = ports_->servicePortWithName(serviceName);
        ASSERT_TRUE(service_);
        service_->setHandler([this](const PortMessage& message) {
            ++received_;
            if (message.replyPort)
                message.replyPort->send({.msgid = 8889, .components = message.components},
                                        seconds(5));
        });
        loop_ = ports_->makeRunLoop();
        service_->addToRunLoop(*loop_);
    }
    void runInThread() {
        thread_ = std::thread([this] {
            while (!done_)
                loop_->runFor(milliseconds(10));
        });
    }
    void stop() {
        done_ = true;
        if (thread_.joinable())
            thread_.join();
        service_.reset();
    }
    std::string client(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{"python3", QUORL_SOURCE_DIR "/tests/support/raw_client.py",
                                         path_};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return outputOf(command);
    }

    TestSandbox sandbox_;
    LogCapture log_;
    std::string folder_ = (sandbox_.root() / "run").string();
    std::string path_ = folder_ + "/" + serviceName;
    std::unique_ptr<LinuxPortSystem> ports_;
    std::unique_ptr<RunLoop> loop_;
    std::unique_ptr<Port> service_;
    std::atomic<int> received_ = 0;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

TEST_F(ServicePortTest, WhatBreaksTheRulesCostsOneLogLineAndTheConnection) {
    start();
    runInThread();
    const std::size_t before = openDescriptors();
    const std::pair<std::string, std::string> expected[] = {
        {"empty", "shorter than its header"},
        {"too-long", "too long"},
        {"two-descriptors", "more than one descriptor"},
        {"many-descriptors", "more than one descriptor"},
        {"file", "the reply port is no connected packet socket"},
        {"stream-socket", "the reply port is no connected packet socket"},
        {"listening-socket", "the reply port is no connected packet socket"},
        {"unconnected-socket", "the reply port is no connected packet socket"},
        {"bad-packet-with-port", "lengths do not add up"},
    };
    std::string outcomes;
    std::vector<std::string> reasons;
    for (const auto& [name, reason] : expected) {
        outcomes += name + " closed\n";
        reasons.push_back(reason);
    }
    EXPECT_EQ(client({"violations"}), outcomes);

    std::vector<std::string> logged;
    std::istringstream lines(log_.text());
    const std::string prefix = "ServicePort : packet refused, connection closed: ";
    for (std::string line; std::getline(lines, line);) {
        const auto at = line.find(prefix);
        logged.push_back(at == std::string::npos ? line : line.substr(at + prefix.size()));
    }
    EXPECT_EQ(logged, reasons);
    EXPECT_EQ(received_, 0);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(client({"request", "01"}), "8889 01\n");
}

TEST_F(ServicePortTest, OtherUsersAreRefusedByName) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user to try it";
    start();
    runInThread();
    // The file's mode already keeps others out; the service must not rely on it.
    chmod(sandbox_.root().c_str(), 0711);
    chmod(path_.c_str(), 0666);
    EXPECT_EQ(client({"connect", "65534"}), "closed\n");
    EXPECT_TRUE(log_.has("ServicePort : peer refused, uid 65534"));
    EXPECT_EQ(client({"request", "01"}), "8889 01\n");
}

TEST_F(ServicePortTest, TheConnectionsAreLimited) {
    start();
    runInThread();
    std::deque<Connection> peers;
    for (int i = 0; i < 32; ++i) {
        peers.emplace_back(path_);
        peers.back().say(1);
    }
    ASSERT_TRUE(waitFor([&] { return received_ == 32; }));
    EXPECT_TRUE(Connection(path_).closes());
    EXPECT_EQ(log_.count("peer refused, 32 connections are open"), 1u);
    // A place that becomes free is given again, and nobody else lost theirs.
    peers.pop_front();
    EXPECT_TRUE(waitFor([&] {
        Connection next(path_);
        next.say(1);
        return waitFor([&] { return received_ == 33; }, milliseconds(100));
    }));
    for (Connection& peer : peers)
        EXPECT_TRUE(peer.isOpen());
}

TEST_F(ServicePortTest, OnlyPeersThatNeverSpokeAreDropped) {
    start({.silence = milliseconds(300)});
    runInThread();
    EXPECT_FALSE(timerRuns());
    Connection speaking(path_);
    speaking.say(1);
    ASSERT_TRUE(waitFor([&] { return received_ == 1; }));
    Connection late(path_);
    Connection silent(path_);
    EXPECT_TRUE(waitFor(timerRuns));
    late.say(1);
    EXPECT_TRUE(silent.closes());
    EXPECT_TRUE(waitFor([] { return !timerRuns(); }));
    speaking.say(1);
    late.say(1);
    EXPECT_TRUE(waitFor([&] { return received_ == 4; }));
    EXPECT_TRUE(speaking.isOpen());
    EXPECT_TRUE(late.isOpen());
}

TEST_F(ServicePortTest, ADeadClientIsHarmlessWhateverItsState) {
    start();
    runInThread();
    const std::size_t before = openDescriptors();
    for (int round = 0; round < 50; ++round) {
        { Connection connected(path_); }
        { Connection(path_).say(1); }
        // Gone without waiting for its answer.
        auto service = connectToService(folder_, serviceName, seconds(5));
        ASSERT_TRUE(service);
        auto ends = makeSocketPair();
        PortMessage request{
            .msgid = 8888,
            .components = {{1}},
            .replyPort = std::make_shared<SocketSendRight>(std::move(ends->second))};
        ends->first.reset();
        EXPECT_TRUE((*service)->send(request, seconds(5)));
    }
    EXPECT_TRUE(waitFor([&] { return received_ == 100; }));
    EXPECT_TRUE(waitFor([&] { return openDescriptors() == before; }));
    EXPECT_EQ(log_.text(), "");
}

TEST_F(ServicePortTest, RunningOutOfDescriptorsPausesAcceptingWithoutSpinning) {
    start();
    Connection waiting(path_);
    waiting.say(1);
    // A sanitizer looks at the formatter when it is used first, and needs a descriptor for that.
    logLine("{}", "a line");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit none = limit;
    // One past the last in use, so that the loop itself still runs.
    none.rlim_cur = static_cast<rlim_t>(FileDescriptor(dup(STDERR_FILENO)).get());
    setrlimit(RLIMIT_NOFILE, &none);
    loop_->runFor(milliseconds(300));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(log_.count("ServicePort : accepting paused"), 1u);
    EXPECT_EQ(received_, 0);

    runInThread();
    EXPECT_TRUE(waitFor([&] { return received_ == 1; }));
}

}  // namespace
}  // namespace quorl::test
