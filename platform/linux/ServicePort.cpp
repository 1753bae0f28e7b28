#include "ServicePort.h"

#include "Log.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <utility>

namespace quorl {
namespace {

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

std::unique_ptr<ServicePort> ServicePort::make(std::shared_ptr<ServiceName> name,
                                               ServiceLimits limits) {
    FileDescriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!timer) {
        logLine("ServicePort : no port can be made: {}", strerror(errno));
        return nullptr;
    }
    return std::unique_ptr<ServicePort>(new ServicePort(std::move(name), limits, std::move(timer)));
}

ServicePort::ServicePort(std::shared_ptr<ServiceName> name, ServiceLimits limits,
                         FileDescriptor timer)
    : name_(std::move(name)),
      limits_(limits),
      timer_(std::move(timer)),
      listenerSource_(*this, name_->listener(), &ServicePort::acceptPeer),
      timerSource_(*this, timer_.get(), &ServicePort::timeIsUp) {}

ServicePort::~ServicePort() {
    ServicePort::invalidate();
}

void ServicePort::addToRunLoop(RunLoop& loop) {
    loop_ = &loop;
    loop_->add(listenerSource_);
    loop_->add(timerSource_);
}

void ServicePort::invalidate() {
    if (loop_) {
        for (Peer& peer : peers_)
            loop_->remove(peer);
        loop_->remove(timerSource_);
        loop_->remove(listenerSource_);
    }
    loop_ = nullptr;
    peers_.clear();
    name_.reset();
    timer_.reset();
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
    Peer& peer = peers_.emplace_back(*this, std::move(socket));
    loop_->add(peer);
    // A client sends as soon as it has connected, so its message is most often there already.
    if (receiveFrom(peer) == Receipt::peerStays && !peer.hasSpoken) {
        peer.silentUntil = std::chrono::steady_clock::now() + limits_.silence;
        setTimer();
    }
}

bool ServicePort::admits(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    if (peer.uid != 0 && !(limits_.ownAccount && peer.uid == geteuid())) {
        logLine("ServicePort : peer refused, uid {}", peer.uid);
        return false;
    }
    if (peers_.size() >= limits_.connections) {
        logLine("ServicePort : peer refused, {} connections are open", peers_.size());
        return false;
    }
    return true;
}

// The waiting peer keeps the listener readable, so watching it on would never let the loop rest.
void ServicePort::pauseAccepting(int reason) {
    logLine("ServicePort : accepting paused: {}", strerror(reason));
    loop_->remove(listenerSource_);
    acceptAgainAt_ = std::chrono::steady_clock::now() + acceptPause;
    setTimer();
}

ServicePort::Receipt ServicePort::receiveFrom(Peer& peer) {
    auto message = receiver_.receive(peer.descriptor());
    if (message) {
        peer.hasSpoken = true;
        if (std::exchange(peer.silentUntil, std::nullopt))
            setTimer();
        handler_(std::move(*message));
        // The handler may have invalidated the port.
        return name_ ? Receipt::peerStays : Receipt::peerIsGone;
    }
    switch (message.error().kind) {
        case NoMessage::nothingThere:
            return Receipt::peerStays;
        case NoMessage::refused:
            logLine("ServicePort : packet refused, connection closed: {}",
                    std::string(message.error().reason));
            break;
        case NoMessage::closedByPeer:
            break;
    }
    loop_->remove(peer);
    peers_.remove_if([&peer](const Peer& other) { return &other == &peer; });
    setTimer();
    return Receipt::peerIsGone;
}

void ServicePort::timeIsUp() {
    std::uint64_t expirations = 0;
    [[maybe_unused]] const ssize_t taken = read(timer_.get(), &expirations, sizeof expirations);
    timerSetTo_.reset();
    const auto now = std::chrono::steady_clock::now();
    dropSilentPeers(now);
    if (acceptAgainAt_ && *acceptAgainAt_ <= now) {
        acceptAgainAt_.reset();
        loop_->add(listenerSource_);
    }
    setTimer();
}

void ServicePort::dropSilentPeers(SteadyTime now) {
    const auto dropped = peers_.remove_if([this, now](Peer& peer) {
        if (!peer.silentUntil || *peer.silentUntil > now)
            return false;
        loop_->remove(peer);
        return true;
    });
    if (dropped > 0)
        logLine("ServicePort : {} silent peers dropped", dropped);
}

// Set only while somebody waits for it: a service at rest has no timer running.
void ServicePort::setTimer() {
    std::optional<SteadyTime> next = acceptAgainAt_;
    for (const Peer& peer : peers_) {
        if (peer.silentUntil && (!next || *peer.silentUntil < *next))
            next = peer.silentUntil;
    }
    if (next == timerSetTo_)
        return;
    const itimerspec setting = timerSetting(next);
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
    timerSetTo_ = next;
}

}  // namespace quorl
