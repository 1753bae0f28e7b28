#include "Programs.h"

#include "AgentMessagingService.h"
#include "KeyedArchive.h"
#include "MessageIds.h"
#include "PacketSocket.h"
#include "SocketAddress.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// A named pipe, open for both ends, so that no opening waits for the other one.
FileDescriptor makePipe(const std::string& path) {
    unlink(path.c_str());
    mkfifo(path.c_str(), 0600);
    return FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
}

// Appends what there is to read; a file at its end gives nothing.
void readMore(int descriptor, std::string& text) {
    char buffer[4096];
    const ssize_t size = read(descriptor, buffer, sizeof buffer);
    text.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
}

// Takes lines off the text, and more text off the source whenever the signal is readable, until
// a line is the wanted one or 20 s are over.
template <class Wanted>
void awaitLine(int source, int signal, std::string& text, Wanted wanted) {
    const double end = milliseconds() + 20'000;
    while (milliseconds() < end) {
        for (auto line = text.find('\n'); line != std::string::npos; line = text.find('\n')) {
            const std::string printed = text.substr(0, line);
            text.erase(0, line + 1);
            if (wanted(printed))
                return;
        }
        pollfd entry{.fd = signal, .events = POLLIN, .revents = 0};
        if (poll(&entry, 1, 100) <= 0)
            continue;
        if (signal != source) {
            std::string notices;
            readMore(signal, notices);
        }
        readMore(source, text);
    }
}

}  // namespace

double milliseconds() {
    return std::chrono::duration<double, std::milli>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void settle() {
    static useconds_t rounds = 0;
    usleep(200'000 + ++rounds * 3'700 % 50'000);
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

LogReader::LogReader(const test::AgentStage& stage) : changes_(inotify_init1(IN_CLOEXEC)) {
    const std::string path = (stage.sandbox.support() / "VantorixClient.log").string();
    log_.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    lseek(log_.get(), 0, SEEK_END);
    inotify_add_watch(changes_.get(), path.c_str(), IN_MODIFY);
}

void LogReader::await(const std::string& message) {
    awaitLine(log_.get(), changes_.get(), unread_,
              [&](const std::string& line) { return line.find(message) != std::string::npos; });
}

MinimalBrowser::MinimalBrowser(test::AgentStage& stage) {
    const std::string input = (stage.sandbox.root() / "browser.in").string();
    const std::string output = (stage.sandbox.root() / "browser.out").string();
    input_ = makePipe(input);
    output_ = makePipe(output);
    process_ = stage.run({"minimal-browser"}, output, "/dev/null", input);
    await("ready");
}

void MinimalBrowser::say(const std::string& line) {
    const std::string text = line + "\n";
    [[maybe_unused]] const auto written = write(input_.get(), text.data(), text.size());
}

void MinimalBrowser::await(const std::string& line) {
    awaitLine(output_.get(), output_.get(), unread_,
              [&](const std::string& printed) { return printed == line; });
}

void MinimalBrowser::hide() {
    say("hide");
    await("finished about:blank");
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
