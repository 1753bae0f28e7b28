// A request's way through the channel and back, beside the same four hops written bare.
#include "AgentMessagingService.h"
#include "BareRelay.h"
#include "GlibRunLoop.h"
#include "Groups.h"
#include "KeyedArchive.h"
#include "LinuxPortSystem.h"
#include "Log.h"
#include "PacketSocket.h"
#include "SampleRequest.h"
#include "TestSandbox.h"

#include <poll.h>
#include <sched.h>

#include <atomic>
#include <cstdlib>
#include <thread>

namespace quorl::bench {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int rounds = 240;
constexpr int requestsPerRound = 25;

// All threads on one processor: where the scheduler would put them is not what is measured.
class Pinned {
  public:
    Pinned() {
        sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~Pinned() { sched_setaffinity(0, sizeof before_, &before_); }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

  private:
    cpu_set_t before_{};
};

// Runs a loop on a thread of its own.
class LoopThread {
  public:
    explicit LoopThread(RunLoop& loop)
        : thread_([this, &loop] {
              while (!done_)
                  loop.runFor(milliseconds(100));
          }) {}
    ~LoopThread() {
        done_ = true;
        thread_.join();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

  private:
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

// One request of a new client with a new reply port, from connecting to the answer.
void request(const std::string& folder, const std::string& name, const Bytes& body) {
    auto service = connectToService(folder, name, seconds(5));
    auto ends = makeSocketPair();
    if (!service || !ends)
        std::abort();
    PortMessage message{.msgid = MessageId::request,
                        .components = {body},
                        .replyPort = std::make_shared<SocketSendRight>(std::move(ends->second))};
    (*service)->send(message, seconds(5));
    message.replyPort.reset();
    pollfd entry{.fd = ends->first.get(), .events = POLLIN, .revents = 0};
    static PacketReceiver receiver;
    if (poll(&entry, 1, 10'000) != 1 || !receiver.receive(ends->first.get()))
        std::abort();
}

// Our ports with the least behind them: each message is passed on as it comes.
class PortsAlone {
  public:
    explicit PortsAlone(std::string folder)
        : folder_(std::move(folder)),
          ports_(folder_),
          application_(ports_.makePort()),
          local_(ports_.makePort()),
          service_(ports_.servicePortWithName("transport")) {
        if (!application_ || !local_ || !service_)
            std::abort();
        application_->setHandler([](PortMessage message) {
            message.replyPort->send(
                {.msgid = MessageId::result, .components = std::move(message.components)},
                seconds(5));
        });
        local_->setHandler(
            [this](const PortMessage& message) { client_->send(message, seconds(5)); });
        service_->setHandler([this](PortMessage message) {
            client_ = std::exchange(message.replyPort, local_->sendRight());
            message.msgid = MessageId::forwardedRequest;
            application_->sendRight()->send(message, seconds(5));
        });
        application_->addToRunLoop(applicationLoop_);
        local_->addToRunLoop(*relayLoop_);
        service_->addToRunLoop(*relayLoop_);
    }
    void request(const Bytes& body) { bench::request(folder_, "transport", body); }

  private:
    std::string folder_;
    LinuxPortSystem ports_;
    GlibRunLoop applicationLoop_;
    std::unique_ptr<RunLoop> relayLoop_ = ports_.makeRunLoop();
    std::unique_ptr<Port> application_;
    std::unique_ptr<Port> local_;
    std::unique_ptr<Port> service_;
    SendRightPtr client_;
    LoopThread applicationThread_{applicationLoop_};
    LoopThread relayThread_{*relayLoop_};
};

const Value& sampleResult() {
    static const Value result = {{"MFA_AUTH_RESULT", "SUCCESS"},
                                 {"KEY", "c81e728d9d4c2f636f067f89cc14862c"},
                                 {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", "eccbc87e4b5ce2fe"}};
    return result;
}

// The application's side of a request without its windows: the lines it logs, one decode of the
// request, one encode of the result.
void answerAsApplication(const PortMessage& message, SendRightPtr& relay) {
    logLine("handlePortMessage - {}", message.msgid);
    if (message.msgid == MessageId::checkIn) {
        relay = message.replyPort;
        return;
    }
    logLine("handlePortMessage : Got MFA/ErrMsg request message from client via the MFA server!!");
    logLine("handlePortMessage : request: {}", *unarchive(message.components.front()));
    logLine("sendMFAResponse :: initiated....");
    relay->send({.msgid = MessageId::result, .components = {*archive(sampleResult())}}, seconds(5));
    logLine("sendMFAResponse: Message sent to the AgentMessagingService..");
}

// The relay itself.
class WholeRelay {
  public:
    explicit WholeRelay(std::string folder)
        : folder_(std::move(folder)), ports_(folder_), application_(ports_.makePort()) {
        if (!application_)
            std::abort();
        application_->setHandler(
            [this](const PortMessage& message) { answerAsApplication(message, relayPort_); });
        application_->addToRunLoop(applicationLoop_);
        relayThread_ = std::thread([this] { service_.run(application_->sendRight()); });
        test::waitFor(
            [this] { return std::filesystem::exists(servicePath(folder_, bootstrapName)); });
    }
    ~WholeRelay() {
        service_.isServiceDone = true;
        relayThread_.join();
    }
    WholeRelay(const WholeRelay&) = delete;
    WholeRelay& operator=(const WholeRelay&) = delete;

    void request(const Bytes& body) { bench::request(folder_, bootstrapName, body); }

  private:
    std::string folder_;
    LinuxPortSystem ports_;
    GlibRunLoop applicationLoop_;
    std::unique_ptr<Port> application_;
    SendRightPtr relayPort_;
    AgentMessagingService service_{ports_};
    std::thread relayThread_;
    LoopThread applicationThread_{applicationLoop_};
};

// What the whole relay does beside the hops: 14 log lines, 2 decodes, 1 encode.
void logAndArchive(const Bytes& body) {
    static const Value request = sampleRequest();
    unarchive(body);
    unarchive(body);
    archive(sampleResult());
    logLine("{}", request);
    logLine("handlePortMessage : request: {}", request);
    for (int i = 0; i < 12; ++i)
        logLine("AgentMessagingService : sendMsgToApp - {}", i);
}

struct Samples {
    std::vector<double> ours;
    std::vector<double> floor;
};

// Microseconds of single runs, in rounds that take turns, after a round each to warm up.
template <class Ours, class Floor>
Samples compare(Ours ours, Floor floor) {
    Samples samples;
    const auto measure = [](auto& work, std::vector<double>& into) {
        for (int i = 0; i < requestsPerRound; ++i)
            into.push_back(nanoseconds(work) / 1000);
    };
    measure(ours, samples.ours);
    measure(floor, samples.floor);
    samples = {};
    for (int round = 0; round < rounds; ++round) {
        measure(ours, samples.ours);
        measure(floor, samples.floor);
    }
    return samples;
}

}  // namespace

void benchMessage(Figures& figures) {
    const Pinned pinned;
    const test::TestSandbox sandbox;
    const std::string folder = (sandbox.root() / "run").string();
    BareRelay bare(folder + "/bare");
    {
        const Bytes body(600, 0x5A);
        PortsAlone ports(folder);
        const Samples samples = compare([&] { ports.request(body); }, [&] { bare.request(body); });
        for (const auto& [name, share] : {std::pair("p50", 0.5), std::pair("p99", 0.99)})
            figures.add(std::string("agent.msg.transport.") + name, percentile(samples.ours, share),
                        percentile(samples.floor, share), "us");
    }
    const Bytes body = *archive(sampleRequest());
    Samples samples;
    {
        const test::LogCapture log;
        WholeRelay relay(folder);
        samples = compare([&] { relay.request(body); },
                          [&] {
                              bare.request(body);
                              logAndArchive(body);
                          });
    }
    figures.add("agent.msg.roundtrip.p50", median(samples.ours), median(samples.floor), "us");
}

}  // namespace quorl::bench
