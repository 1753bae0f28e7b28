// A request's archive read and written, beside a general property-list library that parses and
// emits the same bytes without making a dictionary of them; and its way through the channel and
// back, beside the same four hops written bare.
#include "AgentMessagingService.h"
#include "BareRelay.h"
#include "GlibRunLoop.h"
#include "KeyedArchive.h"
#include "LinuxPortSystem.h"
#include "Log.h"
#include "TestSandbox.h"

#include <plist/plist.h>
#include <sched.h>

namespace quorl::bench {
namespace {

using namespace std::chrono_literals;

// As a login process sends it, with every key there is.
const Value sampleRequest = Value::parse(R"({
    "MFA_REQUEST_URL": "/AgentMFA.cc?transaction=8f14e45fceea167a5a36dedd4bea2543",
    "USER_NAME": "alice.liddell", "DOMAIN_NAME": "corp.example.com",
    "POST_DATA": "user=alice.liddell&domain=corp.example.com",
    "REQUEST_HEADERS": {"X-Session": "c4ca4238a0b923820dcc509a6f75849b"},
    "OFFLINE_MFA": false, "MFA_ERROR_MSG": "", "ERROR_MSG": ""})");
const Value sampleResult = {{"MFA_AUTH_RESULT", "SUCCESS"},
                            {"KEY", "c81e728d9d4c2f636f067f89cc14862c"},
                            {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", "eccbc87e4b5ce2fe"}};

using Plist = Handle<std::remove_pointer_t<plist_t>, plist_free>;

Plist parse(const Bytes& bytes) {
    plist_t node = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::uint32_t>(bytes.size()), &node);
    expect(node, "the library cannot read the archive");
    return Plist(node);
}

void emit(const Plist& plist) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(plist.get(), &bytes, &length);
    const Handle<char, plist_to_bin_free> written(bytes);
    expect(bytes, "the library cannot write the archive");
}

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
void benchTransport(const std::string& folder, const BareRelay& bare) {
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
    const auto ours = [&] { request(folder, "transport", body); };
    const Samples samples = compare(turns, ours, [&] { bare.request(body); });
    print("agent.msg.transport.p50", samples, us);
    print("agent.msg.transport.p99", samples, us, 0.99);
}

// The application's side of a request without its windows: the lines it logs, one decode of the
// request, one encode of the result.
void answerAsApplication(const PortMessage& message) {
    logLine("handlePortMessage - {}", message.msgid);
    if (message.msgid == MessageId::checkIn)
        return;
    logLine("handlePortMessage : Got MFA/ErrMsg request message from client via the MFA server!!");
    logLine("handlePortMessage : request: {}", *unarchive(message.components.front()));
    logLine("sendMFAResponse :: initiated....");
    message.replyPort->send({.msgid = MessageId::result, .components = {*archive(sampleResult)}},
                            5s);
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
void benchRoundtrip(const std::string& folder, const BareRelay& bare) {
    const test::LogCapture log;
    const Bytes body = *archive(sampleRequest);
    LinuxPortSystem ports(folder);
    GlibRunLoop loop;
    const auto application = ports.makePort();
    application->setHandler(answerAsApplication);
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
        bare.request(body);
        logAndArchive(body);
    };
    print("agent.msg.roundtrip.p50", compare(turns, ours, least), us);
}

}  // namespace

void benchArchive() {
    constexpr Turns many{.turns = 400, .runs = 100};
    const Bytes bytes = *archive(sampleRequest);
    const Plist plist = parse(bytes);
    const auto decode = [&] { expect(unarchive(bytes).has_value(), "no archive is read"); };
    const auto encode = [&] { expect(archive(sampleRequest).has_value(), "none is written"); };
    print("agent.archive.decode", compare(many, decode, [&] { parse(bytes); }), us);
    print("agent.archive.encode", compare(many, encode, [&] { emit(plist); }), us);
}

void benchMessage() {
    pin();
    const test::TestSandbox sandbox;
    const std::string folder = sandbox.root() / "run";
    const BareRelay bare(folder + "/bare");
    benchTransport(folder, bare);
    benchRoundtrip(folder, bare);
}

}  // namespace quorl::bench
