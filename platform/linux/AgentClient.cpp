#include "AgentClient.h"

#include "AgentChannel.h"
#include "KeyedArchive.h"
#include "SocketAddress.h"
#include "SystemPaths.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <array>
#include <cstring>

namespace quorl {
namespace {

using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Connection = tl::expected<FileDescriptor, std::string>;

constexpr int mostOddPackets = 16;

tl::unexpected<std::string> systemError(const std::string& what) {
    return tl::unexpected(what + ": " + std::strerror(errno));
}

tl::unexpected<std::string> notTheAgents(const std::string& path, uid_t uid) {
    return tl::unexpected(path + ": belongs to uid " + std::to_string(uid) +
                          ", not to the agent's account");
}

tl::unexpected<NoResult> noResult(NoResult::Kind kind, std::string reason) {
    return tl::unexpected(NoResult{kind, std::move(reason)});
}

// Held by its descriptor from the check to the connection: a name can change hands in between.
Connection openSocketFile(const AgentAddress& address) {
    const std::string path = servicePath(address.runtimeDir, bootstrapName);
    FileDescriptor file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        return systemError(path);
    struct stat info {};
    if (fstat(file.get(), &info) != 0)
        return systemError(path);
    if (!S_ISSOCK(info.st_mode))
        return tl::unexpected(path + ": not a socket");
    if (info.st_uid != address.account)
        return notTheAgents(path, info.st_uid);
    return file;
}

Connection connectToAgent(const AgentAddress& address, milliseconds deadline) {
    auto file = openSocketFile(address);
    if (!file)
        return file;
    const std::string path = "/proc/self/fd/" + std::to_string(file->get());
    const auto name = socketAddress(path);
    FileDescriptor connection(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    // The send time-out also bounds connect(), which waits while the service's queue is full. None
    // at all would be no bound.
    const auto wait = std::max(deadline, milliseconds(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(wait);
    const timeval timeout{
        .tv_sec = static_cast<time_t>(seconds.count()),
        .tv_usec = static_cast<suseconds_t>(std::chrono::microseconds(wait - seconds).count())};
    if (!name || !connection ||
        setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0 ||
        connect(connection.get(), reinterpret_cast<const sockaddr*>(&*name), sizeof *name) != 0)
        return systemError(servicePath(address.runtimeDir, bootstrapName));
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return systemError("the other end");
    if (peer.uid != address.account)
        return notTheAgents("the other end", peer.uid);
    return connection;
}

}  // namespace

AgentAddress agentAddress() {
    const std::string& name = systemPaths().agentAccount;
    std::array<char, 16'384> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
    return {.runtimeDir = systemPaths().runtimeDir, .account = found ? found->pw_uid : geteuid()};
}

bool agentListens(const AgentAddress& address) {
    return connectToAgent(address, std::chrono::seconds(1)).has_value();
}

AgentRequest::AgentRequest(FileDescriptor replies, SendRightPtr service)
    : replies_(std::move(replies)),
      service_(std::move(service)),
      receiver_(std::make_unique<PacketReceiver>()) {}

tl::expected<AgentRequest, NoResult> AgentRequest::send(const AgentAddress& address,
                                                        const Value& request,
                                                        milliseconds deadline) {
    using enum NoResult::Kind;
    auto body = archive(request);
    if (!body)
        return noResult(unreachable, "the request holds what an archive cannot carry");
    auto connection = connectToAgent(address, deadline);
    if (!connection)
        return noResult(unreachable, "the agent cannot be reached: " + connection.error());
    auto ends = makeSocketPair();
    if (!ends)
        return noResult(unreachable, "no reply port can be made");
    auto service = std::make_shared<SocketSendRight>(std::move(*connection));
    PortMessage message{.msgid = MessageId::request,
                        .replyPort = std::make_shared<SocketSendRight>(std::move(ends->second))};
    message.components.push_back(std::move(*body));
    if (!service->send(message, deadline))
        return noResult(unreachable, "the request cannot be sent");
    // From here on the agent alone holds that end, so its letting go is seen at once.
    message.replyPort.reset();
    return AgentRequest(std::move(ends->first), std::move(service));
}

std::optional<AgentRequest::Result> AgentRequest::take() {
    using enum NoResult::Kind;
    for (;;) {
        auto message = receiver_->receive(replies_.get());
        if (message && message->msgid == MessageId::result) {
            auto result =
                message->components.empty() ? std::nullopt : unarchive(message->components.front());
            if (!result)
                return noResult(unreadable, "the answer is no archived dictionary");
            return std::move(*result);
        }
        if (!message && message.error().kind == NoMessage::nothingThere)
            return std::nullopt;
        if (!message && message.error().kind == NoMessage::closedByPeer)
            return noResult(dropped, "the agent dropped the request");
        if (++oddPackets_ == mostOddPackets)
            return noResult(unreadable, "the agent sends what is no answer");
    }
}

AgentRequest::Result AgentRequest::wait(milliseconds deadline) {
    const auto end = SteadyClock::now() + deadline;
    for (;;) {
        if (auto result = take())
            return std::move(*result);
        const auto left = std::chrono::ceil<milliseconds>(end - SteadyClock::now()).count();
        if (left <= 0)
            return noResult(NoResult::Kind::timeUp, "the time is up");
        pollfd entry{.fd = descriptor(), .events = POLLIN, .revents = 0};
        poll(&entry, 1, static_cast<int>(std::min<long long>(left, 60'000)));
    }
}

}  // namespace quorl
