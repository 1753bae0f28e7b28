// A request's way through the channel and back, beside the same four hops written bare.
#include "AgentMessagingService.h"
#include "BareRelay.h"
#include "GlibRunLoop.h"
#include "KeyedArchive.h"
#include "LinuxPortSystem.h"
#include "Log.h"
#include "PacketSocket.h"
#include "SampleData.h"
#include "TestSandbox.h"

#include <poll.h>
#include <sched.h>

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
void benchTransport(const std::string& folder, const std::string& bare) {
    const Bytes body(600, 0x5A);
    LinuxPortSystem ports(folder);
    GlibRunLoop applicationLoop;
    const auto relayLoop = ports.makeRunLoop();
    const auto application = ports.makePort();
    const auto local = ports.makePort();
    const auto service = ports.servicePortWithName("transport");
    expect(application && local && service, "no ports can be made");
    SendRightPtr client;
    application->setHandler([](PortMessage message) {
        message.replyPort->send(
            {.msgid = MessageId::result, .components = std::move(message.components)}, 5s);
    });
    local->setHandler([&](const PortMessage& message) { client->send(message, 5s); });
    service->setHandler([&](PortMessage message) {
        client = std::exchange(message.replyPort, local->sendRight());
        message.msgid = MessageId::forwardedRequest;
        application->sendRight()->send(message, 5s);
    });
    application->addToRunLoop(applicationLoop);
    local->addToRunLoop(*relayLoop);
    service->addToRunLoop(*relayLoop);
    const std::jthread applicationThread = run(applicationLoop);
    const std::jthread relayThread = run(*relayLoop);
    const Samples samples = compare(
        turns, [&] { request(folder, "transport", body); }, [&] { bareRequest(bare, body); });
    print("agent.msg.transport.p50", samples, us);
    print("agent.msg.transport.p99", samples, us, 0.99);
}

const Value sampleResult = {{"MFA_AUTH_RESULT", "SUCCESS"},
                            {"KEY", "c81e728d9d4c2f636f067f89cc14862c"},
                            {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", "eccbc87e4b5ce2fe"}};

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
    relay->send({.msgid = MessageId::result, .components = {*archive(sampleResult)}}, 5s);
    logLine("sendMFAResponse: Message sent to the AgentMessagingService..");
}

// What the whole relay does beside the hops: 14 log lines, 2 decodes, 1 encode.
void logAndArchive(const Bytes& body) {
    unarchive(body);
    unarchive(body);
    archive(sampleResult);
    logLine("{}", sampleRequest);
    logLine("handlePortMessage : request: {}", sampleRequest);
    for (int i = 0; i < 12; ++i)
        logLine("AgentMessagingService : sendMsgToApp - {}", i);
}

// The relay itself.
void benchRoundtrip(const std::string& folder, const std::string& bare) {
    const test::LogCapture log;
    const Bytes body = *archive(sampleRequest);
    LinuxPortSystem ports(folder);
    GlibRunLoop loop;
    const auto application = ports.makePort();
    SendRightPtr relayPort;
    application->setHandler(
        [&](const PortMessage& message) { answerAsApplication(message, relayPort); });
    application->addToRunLoop(loop);
    AgentMessagingService service(ports);
    const std::jthread applicationThread = run(loop);
    const std::jthread relay([&](const std::stop_token& stop) {
        const std::stop_callback end(stop, [&] { service.isServiceDone = true; });
        service.run(application->sendRight());
    });
    test::waitFor([&] { return std::filesystem::exists(servicePath(folder, bootstrapName)); });
    const auto ours = [&] { request(folder, bootstrapName, body); };
    const auto least = [&] {
        bareRequest(bare, body);
        logAndArchive(body);
    };
    print("agent.msg.roundtrip.p50", compare(turns, ours, least), us);
}

}  // namespace

void benchMessage() {
    pin();
    const test::TestSandbox sandbox;
    const std::string folder = sandbox.root() / "run";
    const std::string bare = folder + "/bare";
    startBareRelay(bare);
    benchTransport(folder, bare);
    benchRoundtrip(folder, bare);
}

}  // namespace quorl::bench
