#include "PacketSocket.h"

#include "PacketCodec.h"
#include "SocketAddress.h"
#include "Wipe.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace quorl {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t oneDescriptor = CMSG_SPACE(sizeof(int));

// Waits for room to send; false when the time is up.
bool waitWritable(int socket, SteadyClock::time_point end) {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - SteadyClock::now()).count();
        if (left <= 0)
            return false;
        pollfd entry{.fd = socket, .events = POLLOUT, .revents = 0};
        const int ready = poll(&entry, 1, static_cast<int>(std::min<long long>(left, 60'000)));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

// Takes over every descriptor that came with a packet, so that none is left open whatever follows.
std::vector<FileDescriptor> takeDescriptors(msghdr& header) {
    std::vector<FileDescriptor> taken;
    for (cmsghdr* item = CMSG_FIRSTHDR(&header); item; item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(item) + i * sizeof(int), sizeof(int));
            taken.emplace_back(descriptor);
        }
    }
    return taken;
}

// A listening or unconnected socket has no peer; a connection whose peer has died still has one.
bool isConnectedPacketSocket(int descriptor) {
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_SEQPACKET)
        return false;
    sockaddr_un peer{};
    size = sizeof peer;
    return getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
           peer.sun_family == AF_UNIX;
}

// A packet without bytes and the end of the connection read alike.
bool peerHasClosed(int socket) {
    pollfd entry{.fd = socket, .events = POLLRDHUP, .revents = 0};
    return poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

class HangUpWatch final : public ReceiverWatch, private RunLoopSource {
  public:
    HangUpWatch(RunLoop& loop, int socket, std::function<void()> gone)
        : loop_(loop), socket_(socket), gone_(std::move(gone)) {
        loop_.addForHangUp(*this);
    }
    ~HangUpWatch() override { loop_.remove(*this); }

  private:
    int descriptor() const override { return socket_; }
    void ready() override {
        loop_.remove(*this);
        // Taken out first: it may destroy this.
        const auto gone = std::move(gone_);
        gone();
    }

    RunLoop& loop_;
    int socket_;
    std::function<void()> gone_;
};

tl::unexpected<ReceiveFailure> refused(std::string_view reason) {
    return tl::unexpected(ReceiveFailure{NoMessage::refused, reason});
}

}  // namespace

bool SocketSendRight::send(const PortMessage& message, std::chrono::milliseconds deadline) {
    std::optional<Bytes> packet = encodePacket(message.msgid, message.components);
    if (!packet)
        return false;
    iovec bytes{.iov_base = packet->data(), .iov_len = packet->size()};
    msghdr header{};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    alignas(cmsghdr) std::array<char, oneDescriptor> control{};
    if (message.replyPort) {
        const auto* reply = dynamic_cast<const SocketSendRight*>(message.replyPort.get());
        if (!reply)
            return false;
        const int descriptor = reply->socket_.get();
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        cmsghdr* item = CMSG_FIRSTHDR(&header);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(item), &descriptor, sizeof descriptor);
    }
    const WipeAtExit atExit(*packet);
    std::optional<SteadyClock::time_point> end;
    for (;;) {
        // Never blocking by the call itself: a descriptor that came from a peer is shared with it,
        // so its mode is the peer's to change.
        if (sendmsg(socket_.get(), &header, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            return true;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return false;
        if (!end)
            end = SteadyClock::now() + deadline;
        if (!waitWritable(socket_.get(), *end))
            return false;
    }
}

std::unique_ptr<ReceiverWatch> SocketSendRight::watchReceiver(RunLoop& loop,
                                                              std::function<void()> gone) {
    return std::make_unique<HangUpWatch>(loop, socket_.get(), std::move(gone));
}

// Left as it comes from the allocator: only the pages that packets really touch take memory.
PacketReceiver::PacketReceiver()
    : buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(maxPacketSize)) {}

tl::expected<PortMessage, ReceiveFailure> PacketReceiver::receive(int socket) {
    iovec bytes{.iov_base = buffer_.get(), .iov_len = maxPacketSize};
    alignas(cmsghdr) std::array<char, oneDescriptor> control{};
    msghdr header{};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    ssize_t size = 0;
    do
        size = recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    while (size < 0 && errno == EINTR);
    if (size < 0)
        return tl::unexpected(
            ReceiveFailure{errno == EAGAIN ? NoMessage::nothingThere : NoMessage::closedByPeer});

    std::vector<FileDescriptor> descriptors = takeDescriptors(header);
    if (size == 0 && descriptors.empty() && peerHasClosed(socket))
        return tl::unexpected(ReceiveFailure{NoMessage::closedByPeer});
    if (header.msg_flags & MSG_TRUNC)
        return refused("too long");
    if (descriptors.size() > 1)
        return refused("more than one descriptor");
    if (header.msg_flags & MSG_CTRUNC)
        return refused("its descriptor could not be taken");
    if (!descriptors.empty() && !isConnectedPacketSocket(descriptors.front().get()))
        return refused("the reply port is no connected packet socket");
    auto message = decodePacket({buffer_.get(), static_cast<std::size_t>(size)});
    // Requests hold what a person typed, and answers what the server issued.
    explicit_bzero(buffer_.get(), static_cast<std::size_t>(size));
    if (!message)
        return refused(message.error());
    if (!descriptors.empty())
        message->replyPort = std::make_shared<SocketSendRight>(std::move(descriptors.front()));
    return std::move(*message);
}

std::optional<std::pair<FileDescriptor, FileDescriptor>> makeSocketPair() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return std::nullopt;
    return std::pair(FileDescriptor(ends[0]), FileDescriptor(ends[1]));
}

std::string servicePath(const std::string& runtimeDir, const std::string& name) {
    return runtimeDir + "/" + name;
}

tl::expected<SendRightPtr, std::string> connectToService(const std::string& runtimeDir,
                                                         const std::string& name,
                                                         std::chrono::milliseconds deadline) {
    const std::string path = servicePath(runtimeDir, name);
    const auto address = socketAddress(path);
    if (!address)
        return tl::unexpected(path + ": the path is too long for a socket");
    FileDescriptor connection(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    // The send time-out also bounds connect(), which waits while the service's queue is full.
    const auto seconds = std::chrono::floor<std::chrono::seconds>(deadline);
    const timeval timeout{
        .tv_sec = static_cast<time_t>(seconds.count()),
        .tv_usec = static_cast<suseconds_t>(std::chrono::microseconds(deadline - seconds).count())};
    if (!connection ||
        setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0 ||
        connect(connection.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) !=
            0)
        return tl::unexpected(path + ": " + std::strerror(errno));
    return std::make_shared<SocketSendRight>(std::move(connection));
}

}  // namespace quorl
