#include "BareRelay.h"

#include "Handle.h"
#include "SocketAddress.h"

#include <glib-unix.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

namespace quorl::bench {
namespace {

constexpr std::size_t bufferSize = 131'072;

std::pair<FileDescriptor, FileDescriptor> socketPair() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        std::abort();
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

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

}  // namespace

class BareRelay::Threads {
  public:
    explicit Threads(const std::string& path)
        : listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        const auto address = socketAddress(path);
        if (bind(listener_.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) !=
                0 ||
            listen(listener_.get(), 64) != 0)
            std::abort();
        std::tie(relayEnd_, applicationEnd_) = socketPair();
        std::tie(stopReader_, stopWriter_) = socketPair();
        relay_ = std::thread([this] { relay(); });
        application_ = std::thread([this] { application(); });
    }
    ~Threads() {
        // Each loop ends when the other side of what it watches is gone.
        stopWriter_.reset();
        relay_.join();
        relayEnd_.reset();
        application_.join();
    }

  private:
    void relay() {
        std::vector<char> buffer(bufferSize);
        std::vector<pollfd> entries;
        for (const int fd : {stopReader_.get(), listener_.get(), relayEnd_.get()})
            entries.push_back({.fd = fd, .events = POLLIN, .revents = 0});
        FileDescriptor reply;
        for (;;) {
            if (poll(entries.data(), entries.size(), 100) <= 0)
                continue;
            if (entries[0].revents != 0)
                return;
            for (std::size_t i = 3; i < entries.size(); ++i) {
                if (entries[i].revents != 0)
                    i -= receiveRequest(entries, i, buffer, reply);
            }
            if (entries[1].revents != 0) {
                const int peer = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
                entries.push_back({.fd = peer, .events = POLLIN, .revents = 0});
            }
            if (entries[2].revents != 0) {
                const ssize_t size = recv(relayEnd_.get(), buffer.data(), buffer.size(), 0);
                send(reply.get(), buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
            }
        }
    }
    // How many entries were taken away.
    std::size_t receiveRequest(std::vector<pollfd>& entries, std::size_t i,
                               std::vector<char>& buffer, FileDescriptor& reply) {
        Message message(buffer.data(), buffer.size());
        const ssize_t size = recvmsg(entries[i].fd, &message.header, MSG_CMSG_CLOEXEC);
        if (size <= 0) {
            close(entries[i].fd);
            entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i));
            return 1;
        }
        int descriptor = -1;
        std::memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&message.header)), sizeof descriptor);
        reply.reset(descriptor);
        send(relayEnd_.get(), buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
        return 0;
    }

    void application() {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        loop_ = g_main_loop_new(context, FALSE);
        GSource* source = g_unix_fd_source_new(applicationEnd_.get(),
                                               static_cast<GIOCondition>(G_IO_IN | G_IO_HUP));
        g_source_set_callback(source, G_SOURCE_FUNC(&Threads::answer), this, nullptr);
        g_source_attach(source, context);
        g_main_loop_run(loop_);
        g_source_destroy(source);
        g_source_unref(source);
        g_main_loop_unref(loop_);
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }
    static gboolean answer(gint fd, GIOCondition, gpointer data) {
        auto* self = static_cast<Threads*>(data);
        const ssize_t size =
            recv(fd, self->applicationBuffer_.data(), self->applicationBuffer_.size(), 0);
        if (size <= 0) {
            g_main_loop_quit(self->loop_);
            return G_SOURCE_CONTINUE;
        }
        send(fd, self->applicationBuffer_.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
        return G_SOURCE_CONTINUE;
    }

    FileDescriptor listener_;
    FileDescriptor relayEnd_;
    FileDescriptor applicationEnd_;
    FileDescriptor stopReader_;
    FileDescriptor stopWriter_;
    std::vector<char> applicationBuffer_ = std::vector<char>(bufferSize);
    GMainLoop* loop_ = nullptr;
    std::thread relay_;
    std::thread application_;
};

BareRelay::BareRelay(const std::string& path)
    : path_(path), threads_(std::make_unique<Threads>(path)) {}

BareRelay::~BareRelay() {
    threads_.reset();
    unlink(path_.c_str());
}

void BareRelay::request(const Bytes& body) {
    const FileDescriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const auto address = socketAddress(path_);
    if (connect(connection.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) !=
        0)
        std::abort();
    auto [mine, theirs] = socketPair();
    Message message(const_cast<std::uint8_t*>(body.data()), body.size());
    cmsghdr* item = CMSG_FIRSTHDR(&message.header);
    item->cmsg_level = SOL_SOCKET;
    item->cmsg_type = SCM_RIGHTS;
    item->cmsg_len = CMSG_LEN(sizeof(int));
    const int descriptor = theirs.get();
    std::memcpy(CMSG_DATA(item), &descriptor, sizeof descriptor);
    if (sendmsg(connection.get(), &message.header, MSG_NOSIGNAL) < 0)
        std::abort();
    theirs.reset();
    std::array<char, 4096> answer{};
    pollfd entry{.fd = mine.get(), .events = POLLIN, .revents = 0};
    if (poll(&entry, 1, 10'000) != 1 || recv(mine.get(), answer.data(), answer.size(), 0) <= 0)
        std::abort();
}

}  // namespace quorl::bench
