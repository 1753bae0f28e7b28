#include "Programs.h"

#include "AgentMessagingService.h"
#include "KeyedArchive.h"
#include "MessageIds.h"
#include "PacketSocket.h"
#include "SocketAddress.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace quorl::bench {
namespace {

// The number behind a field of a status file of /proc.
double field(const std::string& path, const std::string& name) {
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(name))
            return std::stod(line.substr(name.size()));
    }
    return 0;
}

void countChildren(pid_t pid, int& count) {
    ++count;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator(tasks, error)) {
        std::ifstream children(task.path() / "children");
        for (pid_t child = 0; children >> child;)
            countChildren(child, count);
    }
}

}  // namespace

double milliseconds() {
    return std::chrono::duration<double, std::milli>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

ChannelClient::ChannelClient(const test::AgentStage& stage)
    : runtimeDir_((stage.sandbox.root() / "run").string()) {}

void ChannelClient::send(const Value& request) {
    auto service =
        connectToService(runtimeDir_, std::string(bootstrapName), std::chrono::seconds(5));
    auto ends = makeSocketPair();
    if (!service || !ends)
        return;
    replies_ = std::move(ends->first);
    (*service)->send({.msgid = MessageId::request,
                      .components = {archive(request).value_or(Bytes())},
                      .replyPort = std::make_shared<SocketSendRight>(std::move(ends->second))},
                     std::chrono::seconds(5));
}

Value ChannelClient::answer() {
    PacketReceiver receiver;
    const double end = milliseconds() + 20'000;
    while (milliseconds() < end) {
        pollfd entry{.fd = replies_.get(), .events = POLLIN, .revents = 0};
        if (poll(&entry, 1, 100) <= 0)
            continue;
        const auto message = receiver.receive(replies_.get());
        if (message && !message->components.empty())
            return unarchive(message->components.front()).value_or(Value());
        if (!message && message.error().kind == NoMessage::closedByPeer)
            return {};
    }
    return {};
}

MinimalBrowser::MinimalBrowser(test::AgentStage& stage)
    : output_((stage.sandbox.root() / "browser.out").string()),
      input_((stage.sandbox.root() / "browser.in").string()) {
    unlink(input_.c_str());
    unlink(output_.c_str());
    mkfifo(input_.c_str(), 0600);
    // Open for both, so that the program's own opening does not wait for a writer.
    writer_.reset(open(input_.c_str(), O_RDWR | O_CLOEXEC));
    process_ = stage.run({"minimal-browser"}, output_, "/dev/null", input_);
    await("ready");
}

void MinimalBrowser::say(const std::string& line) {
    if (line != "hide")
        test::TestSandbox::write(output_, "");
    const std::string text = line + "\n";
    [[maybe_unused]] const auto written = write(writer_.get(), text.data(), text.size());
}

void MinimalBrowser::await(const std::string& word) {
    test::waitFor([&] { return test::TestSandbox::read(output_).find(word) != std::string::npos; },
                  std::chrono::seconds(20));
}

Usage usageOf(pid_t pid) {
    Usage usage;
    countChildren(pid, usage.processes);
    const std::string process = "/proc/" + std::to_string(pid);
    usage.memoryMiB =
        (field(process + "/status", "RssAnon:") + field(process + "/status", "RssShmem:")) / 1024;
    for (const auto& task : std::filesystem::directory_iterator(process + "/task")) {
        usage.wakeups += field(task.path() / "status", "voluntary_ctxt_switches:");
        double nanoseconds = 0;
        std::ifstream(task.path() / "schedstat") >> nanoseconds;
        usage.cpuMs += nanoseconds / 1e6;
    }
    return usage;
}

}  // namespace quorl::bench
