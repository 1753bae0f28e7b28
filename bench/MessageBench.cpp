// A request's way through the channel and back, beside the same four hops written bare.
#include "AgentMessagingService.h"
#include "BareRelay.h"
#include "GlibRunLoop.h"
#include "Groups.h"
#include "KeyedArchive.h"
#include "LinuxPortSystem.h"
#include "Log.h"
#include "PacketSocket.h"
#include "SampleData.h"
#include "TestSandbox.h"

#include <poll.h>
#include <sched.h>

#include <thread>

namespace quorl::bench {
namespace {

using namespace std::chrono_literals;

constexpr Turns turns{.turns = 240, .samples = 25};

// All threads on one processor: where the scheduler would put them is not what is measured.
void pin() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof one, &one);
}

// Runs a loop on a thread of its own.
std::jthread run(RunLoop& loop) {
    return std::jthread([&loop](const std::stop_token& stop) {
        while (!stop.stop_requested())
            loop.runFor(100ms);
    });
}

// One request of a new client with a new reply port, from connecting to the answer.
void request(const std::string& folder, const std::string& name, const Bytes& body) {
    auto service = connectToService(folder, name, 5s);
    auto ends = makeSocketPair();
    expect(service && ends, "the agent's channel cannot be reached");
    PortMessage message{.msgid = MessageId::request,
                        .components = {body},
                        .replyPort = std::make_shared<SocketSendRight>(std::move(ends->second))};
    (*service)->send(message, 5s);
    message.replyPort.reset();
    pollfd entry{.fd = ends->first.get(), .events = POLLIN, .revents = 0};
    static PacketReceiver receiver;
    expect(poll(&entry, 1, 10'000) == 1 && receiver.receive(ends->first.get()),
           "no answer comes over the agent's channel");
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
        expect(application_ && local_ && service_, "no ports can be made");
        application_->setHandler([](PortMessage message) {
            message.replyPort->send(
                {.msgid = MessageId::result, .components = std::move(message.components)}, 5s);
        });
        local_->setHandler([this](const PortMessage& message) { client_->send(message, 5s); });
        service_->setHandler([this](PortMessage message) {
            client_ = std::exchange(message.replyPort, local_->sendRight());
            message.msgid = MessageId::forwardedRequest;
            application_->sendRight()->send(message, 5s);
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
    std::jthread applicationThread_ = run(applicationLoop_);
    std::jthread relayThread_ = run(*relayLoop_);
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
    relay = message.replyPort;
    if (message.msgid == MessageId::checkIn)
        return;
    logLine("handlePortMessage : Got MFA/ErrMsg request message from client via the MFA server!!");
    logLine("handlePortMessage : request: {}", *unarchive(message.components.front()));
    logLine("sendMFAResponse :: initiated....");
    relay->send({.msgid = MessageId::result, .components = {*archive(sampleResult())}}, 5s);
    logLine("sendMFAResponse: Message sent to the AgentMessagingService..");
}

// The relay itself.
class WholeRelay {
  public:
    explicit WholeRelay(std::string folder)
        : folder_(std::move(folder)), ports_(folder_), application_(ports_.makePort()) {
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
    std::jthread applicationThread_ = run(applicationLoop_);
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

}  // namespace

void benchMessage(Figures& figures) {
    pin();
    const test::TestSandbox sandbox;
    const std::string folder = (sandbox.root() / "run").string();
    BareRelay bare(folder + "/bare");
    {
        const Bytes body(600, 0x5A);
        PortsAlone ports(folder);
        const Samples samples =
            compare([&] { ports.request(body); }, [&] { bare.request(body); }, turns);
        figures.add("agent.msg.transport.p50", samples, us);
        figures.add("agent.msg.transport.p99", samples, us, 0.99);
    }
    const Bytes body = *archive(sampleRequest());
    const auto least = [&] {
        bare.request(body);
        logAndArchive(body);
    };
    const test::LogCapture log;
    WholeRelay relay(folder);
    figures.add("agent.msg.roundtrip.p50", compare([&] { relay.request(body); }, least, turns), us);
}

}  // namespace quorl::bench
