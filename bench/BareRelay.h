#pragma once

#include "Figures.h"
#include "PacketSocket.h"
#include "SocketAddress.h"

#include <glib-unix.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <thread>

namespace quorl::bench {

/// The four hops of a request and nothing else, written straight to the system's calls: a client
/// connects and hands over its reply socket, a thread that polls passes the bytes to a thread that
/// runs GLib's main loop, which sends them back, and the first one answers the client. No checks,
/// no format, no log. The threads last as long as the process.
class BareRelay {
  public:
    explicit BareRelay(std::string path) : path_(std::move(path)) {
        FileDescriptor listener = socketAt(bind);
        expect(listen(listener.get(), 64) == 0, "the bare relay cannot listen");
        auto [relayEnd, applicationEnd] = *makeSocketPair();
        std::thread(relay, listener.release(), relayEnd.release()).detach();
        std::thread(application, applicationEnd.release()).detach();
    }

    /// One request of a new client, from connecting to the answer.
    void request(const Bytes& body) const {
        const FileDescriptor connection = socketAt(connect);
        auto [mine, theirs] = *makeSocketPair();
        Message message(const_cast<std::uint8_t*>(body.data()), body.size());
        *CMSG_FIRSTHDR(&message.header) = {
            .cmsg_len = CMSG_LEN(sizeof(int)), .cmsg_level = SOL_SOCKET, .cmsg_type = SCM_RIGHTS};
        message.descriptor() = theirs.get();
        expect(sendmsg(connection.get(), &message.header, MSG_NOSIGNAL) > 0,
               "no bare request is sent");
        theirs.reset();
        std::array<char, 4096> answer{};
        pollfd entry{.fd = mine.get(), .events = POLLIN, .revents = 0};
        expect(
            poll(&entry, 1, 10'000) == 1 && recv(mine.get(), answer.data(), answer.size(), 0) > 0,
            "no bare answer comes");
    }

  private:
    using Buffer = std::array<char, 131'072>;

    /// A message with one descriptor beside it.
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
        int& descriptor() { return *reinterpret_cast<int*>(CMSG_DATA(CMSG_FIRSTHDR(&header))); }
    };

    FileDescriptor socketAt(int (*attach)(int, const sockaddr*, socklen_t)) const {
        FileDescriptor end(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        const auto address = socketAddress(path_);
        expect(
            attach(end.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0,
            "the bare relay cannot be reached");
        return end;
    }
    static void pass(int from, int to, Buffer& buffer) {
        const ssize_t size = recv(from, buffer.data(), buffer.size(), 0);
        if (size > 0)
            send(to, buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
    }
    /// One client after the other, as they come here.
    static void relay(int listener, int application) {
        static Buffer buffer;
        for (FileDescriptor client, reply;;) {
            std::array<pollfd, 3> entries{
                {{listener, POLLIN, 0}, {application, POLLIN, 0}, {client.get(), POLLIN, 0}}};
            poll(entries.data(), entries.size(), -1);
            if (entries[2].revents != 0) {
                Message message(buffer.data(), buffer.size());
                const ssize_t size = recvmsg(client.get(), &message.header, MSG_CMSG_CLOEXEC);
                if (size > 0) {
                    reply.reset(message.descriptor());
                    send(application, buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
                } else {
                    client.reset();
                }
            }
            if (entries[0].revents != 0)
                client.reset(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
            if (entries[1].revents != 0)
                pass(application, reply.get(), buffer);
        }
    }
    static gboolean answer(gint fd, GIOCondition, gpointer) {
        static Buffer buffer;
        pass(fd, fd, buffer);
        return G_SOURCE_CONTINUE;
    }
    static void application(int relay) {
        const Handle<GMainContext, g_main_context_unref> context(g_main_context_new());
        const Handle<GSource, g_source_unref> source(g_unix_fd_source_new(relay, G_IO_IN));
        g_source_set_callback(source.get(), G_SOURCE_FUNC(answer), nullptr, nullptr);
        g_source_attach(source.get(), context.get());
        for (;;)
            g_main_context_iteration(context.get(), TRUE);
    }

    const std::string path_;
};

}  // namespace quorl::bench
