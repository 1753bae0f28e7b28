#include "BareRelay.h"

#include "Figures.h"
#include "PacketSocket.h"
#include "SocketAddress.h"

#include <glib-unix.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <tuple>

namespace quorl::bench {
namespace {

using Buffer = std::array<char, 131'072>;

// A message with one descriptor beside it.
struct Message {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    iovec bytes;
    msghdr header{};
    Message(void* data, std::size_t size) : bytes{.iov_base = data, .iov_len = size} {
        header.msg_iov = &bytes;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
};

void pass(int from, int to, Buffer& buffer) {
    const ssize_t size = recv(from, buffer.data(), buffer.size(), 0);
    if (size > 0)
        send(to, buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
}

}  // namespace

BareRelay::BareRelay(const std::string& path)
    : path_(path), listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    const auto address = socketAddress(path);
    expect(
        bind(listener_.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0 &&
            listen(listener_.get(), 64) == 0,
        "the bare relay cannot listen");
    std::tie(relayEnd_, applicationEnd_) = *makeSocketPair();
    relay_ = std::jthread([this](const std::stop_token& stop) { relay(stop); });
    application_ = std::jthread([this] { application(); });
}

BareRelay::~BareRelay() {
    relay_.request_stop();
    relay_.join();
    // The application ends when its peer is gone.
    relayEnd_.reset();
    unlink(path_.c_str());
}

// One client after the other, as they come here.
void BareRelay::relay(const std::stop_token& stop) {
    static Buffer buffer;
    FileDescriptor client, reply;
    while (!stop.stop_requested()) {
        std::array<pollfd, 3> entries{{{listener_.get(), POLLIN, 0},
                                       {relayEnd_.get(), POLLIN, 0},
                                       {client.get(), POLLIN, 0}}};
        if (poll(entries.data(), entries.size(), 100) <= 0)
            continue;
        if (entries[2].revents != 0) {
            Message message(buffer.data(), buffer.size());
            const ssize_t size = recvmsg(client.get(), &message.header, MSG_CMSG_CLOEXEC);
            if (size > 0) {
                int descriptor = -1;
                std::memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&message.header)),
                            sizeof descriptor);
                reply.reset(descriptor);
                send(relayEnd_.get(), buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
            } else {
                client.reset();
            }
        }
        if (entries[0].revents != 0)
            client.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (entries[1].revents != 0)
            pass(relayEnd_.get(), reply.get(), buffer);
    }
}

void BareRelay::application() {
    const Handle<GMainContext, g_main_context_unref> context(g_main_context_new());
    const Handle<GSource, g_source_unref> source(
        g_unix_fd_source_new(applicationEnd_.get(), static_cast<GIOCondition>(G_IO_IN | G_IO_HUP)));
    bool done = false;
    g_source_set_callback(source.get(), G_SOURCE_FUNC(&BareRelay::answer), &done, nullptr);
    g_source_attach(source.get(), context.get());
    while (!done)
        g_main_context_iteration(context.get(), TRUE);
    g_source_destroy(source.get());
}

gboolean BareRelay::answer(gint fd, GIOCondition condition, gpointer done) {
    static Buffer buffer;
    *static_cast<bool*>(done) = (condition & G_IO_HUP) != 0;
    pass(fd, fd, buffer);
    return G_SOURCE_CONTINUE;
}

void BareRelay::request(const Bytes& body) {
    const FileDescriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const auto address = socketAddress(path_);
    connect(connection.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address);
    auto [mine, theirs] = *makeSocketPair();
    Message message(const_cast<std::uint8_t*>(body.data()), body.size());
    cmsghdr* item = CMSG_FIRSTHDR(&message.header);
    item->cmsg_level = SOL_SOCKET;
    item->cmsg_type = SCM_RIGHTS;
    item->cmsg_len = CMSG_LEN(sizeof(int));
    const int descriptor = theirs.get();
    std::memcpy(CMSG_DATA(item), &descriptor, sizeof descriptor);
    expect(sendmsg(connection.get(), &message.header, MSG_NOSIGNAL) > 0, "no bare request is sent");
    theirs.reset();
    std::array<char, 4096> answer{};
    pollfd entry{.fd = mine.get(), .events = POLLIN, .revents = 0};
    expect(poll(&entry, 1, 10'000) == 1 && recv(mine.get(), answer.data(), answer.size(), 0) > 0,
           "no bare answer comes");
}

}  // namespace quorl::bench
