#include "ServicePort.h"

#include "Log.h"

#include <errno.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace quorl {
namespace {

constexpr std::uint64_t listenerId = 0;
constexpr std::uint64_t timerId = 1;
constexpr std::uint64_t firstConnectionId = 2;
constexpr std::chrono::seconds acceptPause{1};

itimerspec timerSetting(std::optional<std::chrono::steady_clock::time_point> at) {
    itimerspec setting{};
    if (at) {
        const auto since = at->time_since_epoch();
        const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
        setting.it_value.tv_sec = static_cast<time_t>(seconds.count());
        setting.it_value.tv_nsec =
            static_cast<long>(std::chrono::nanoseconds(since - seconds).count());
    }
    return setting;
}

}  // namespace

std::unique_ptr<ServicePort> ServicePort::make(std::unique_ptr<ServiceName> name,
                                               ServiceLimits limits) {
    FileDescriptor events(epoll_create1(EPOLL_CLOEXEC));
    FileDescriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (events && timer) {
        std::unique_ptr<ServicePort> port(
            new ServicePort(std::move(name), limits, std::move(events), std::move(timer)));
        if (port->watch(port->name_->listener(), listenerId) &&
            port->watch(port->timer_.get(), timerId))
            return port;
    }
    logLine("ServicePort : no port can be made: {}", strerror(errno));
    return nullptr;
}

ServicePort::ServicePort(std::unique_ptr<ServiceName> name, ServiceLimits limits,
                         FileDescriptor events, FileDescriptor timer)
    : name_(std::move(name)),
      limits_(limits),
      events_(std::move(events)),
      timer_(std::move(timer)),
      nextId_(firstConnectionId) {}

ServicePort::~ServicePort() {
    ServicePort::invalidate();
}

void ServicePort::addToRunLoop(RunLoop& loop) {
    loop.add(*this);
    loop_ = &loop;
}

void ServicePort::invalidate() {
    if (loop_)
        loop_->remove(*this);
    loop_ = nullptr;
    connections_.clear();
    name_.reset();
    timer_.reset();
    events_.reset();
}

bool ServicePort::watch(int descriptor, ConnectionId id) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = id;
    return epoll_ctl(events_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void ServicePort::ready() {
    std::array<epoll_event, 8> events{};
    const int count = epoll_wait(events_.get(), events.data(), static_cast<int>(events.size()), 0);
    // A handler may invalidate the port.
    for (int i = 0; i < count && name_; ++i) {
        const ConnectionId id = events[static_cast<std::size_t>(i)].data.u64;
        if (id == listenerId)
            acceptPeer();
        else if (id == timerId)
            timeIsUp();
        else
            receiveFrom(id);
    }
}

void ServicePort::acceptPeer() {
    FileDescriptor socket(
        accept4(name_->listener(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) {
        // EAGAIN and the like: the peer has gone meanwhile.
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            pauseAccepting(errno);
        return;
    }
    if (!admits(socket.get()))
        return;
    const ConnectionId id = nextId_++;
    if (!watch(socket.get(), id)) {
        logLine("ServicePort : a peer cannot be watched: {}", strerror(errno));
        return;
    }
    connections_.emplace(id, Connection{std::move(socket)});
    // A client sends as soon as it has connected, so its message is most often there already.
    receiveFrom(id);
    const auto found = connections_.find(id);
    if (found != connections_.end() && !found->second.hasSpoken) {
        found->second.silentUntil = std::chrono::steady_clock::now() + limits_.silence;
        setTimer();
    }
}

bool ServicePort::admits(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    if (peer.uid != 0 && peer.uid != geteuid()) {
        logLine("ServicePort : peer refused, uid {}", peer.uid);
        return false;
    }
    if (connections_.size() >= limits_.connections) {
        logLine("ServicePort : peer refused, {} connections are open", connections_.size());
        return false;
    }
    return true;
}

// The waiting peer keeps the listener readable, so watching it on would never let the loop rest.
void ServicePort::pauseAccepting(int reason) {
    logLine("ServicePort : accepting paused: {}", strerror(reason));
    epoll_ctl(events_.get(), EPOLL_CTL_DEL, name_->listener(), nullptr);
    acceptAgainAt_ = std::chrono::steady_clock::now() + acceptPause;
    setTimer();
}

void ServicePort::receiveFrom(ConnectionId id) {
    const auto found = connections_.find(id);
    if (found == connections_.end())
        return;
    Connection& connection = found->second;
    auto message = receiver_.receive(connection.socket.get());
    if (message) {
        connection.hasSpoken = true;
        if (std::exchange(connection.silentUntil, std::nullopt))
            setTimer();
        handler_(std::move(*message));
        return;
    }
    switch (message.error().kind) {
        case NoMessage::nothingThere:
            return;
        case NoMessage::refused:
            logLine("ServicePort : packet refused, connection closed: {}",
                    std::string(message.error().reason));
            break;
        case NoMessage::closedByPeer:
            break;
    }
    connections_.erase(found);
    setTimer();
}

void ServicePort::timeIsUp() {
    timerSetTo_.reset();
    const auto now = std::chrono::steady_clock::now();
    const auto dropped = std::erase_if(connections_, [now](const auto& entry) {
        return entry.second.silentUntil && *entry.second.silentUntil <= now;
    });
    if (dropped > 0)
        logLine("ServicePort : {} silent peers dropped", dropped);
    if (acceptAgainAt_ && *acceptAgainAt_ <= now) {
        acceptAgainAt_.reset();
        if (!watch(name_->listener(), listenerId))
            acceptAgainAt_ = now + acceptPause;
    }
    std::uint64_t expirations = 0;
    [[maybe_unused]] const ssize_t taken = read(timer_.get(), &expirations, sizeof expirations);
    setTimer();
}

// Set only while somebody waits for it: a service at rest has no timer running.
void ServicePort::setTimer() {
    std::optional<SteadyTime> next = acceptAgainAt_;
    for (const auto& [id, connection] : connections_) {
        if (connection.silentUntil && (!next || *connection.silentUntil < *next))
            next = connection.silentUntil;
    }
    if (next == timerSetTo_)
        return;
    const itimerspec setting = timerSetting(next);
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
    timerSetTo_ = next;
}

}  // namespace quorl
