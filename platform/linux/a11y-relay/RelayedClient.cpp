#include "RelayedClient.h"

#include <errno.h>
#include <sys/socket.h>

#include <array>

namespace quorl {
namespace {

// Beyond that, the side that sends waits for the one that does not take.
constexpr std::size_t mostWaiting = 1 << 20;

// Appends what has come; false when the other end has gone.
bool receive(int socket, std::string& text) {
    std::array<char, 16384> buffer;
    // Descriptors that came along are closed by the system.
    const ssize_t got = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got < 0)
        return errno == EAGAIN || errno == EINTR;
    text.append(buffer.data(), static_cast<std::size_t>(got));
    return got > 0;
}

bool sendSome(int socket, std::string& text) {
    if (text.empty())
        return true;
    const ssize_t sent = send(socket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0)
        return errno == EAGAIN || errno == EINTR;
    text.erase(0, static_cast<std::size_t>(sent));
    return true;
}

pollfd entryOf(const FileDescriptor& socket, const std::string& outgoing,
               const std::string& incoming) {
    const int read = incoming.size() < mostWaiting ? POLLIN : 0;
    const int write = outgoing.empty() ? 0 : POLLOUT;
    return {.fd = socket.get(), .events = static_cast<short>(read | write), .revents = 0};
}

constexpr short mayRead = POLLIN | POLLHUP | POLLERR;

}  // namespace

RelayedClient::RelayedClient(FileDescriptor client, FileDescriptor bus, std::string guid)
    : client_(std::move(client)),
      bus_(std::move(bus)),
      handshake_(std::move(guid)),
      toBus_("BEGIN\r\n") {}

pollfd RelayedClient::clientEntry() const {
    return entryOf(client_, toClient_, toBus_);
}

pollfd RelayedClient::busEntry() const {
    return entryOf(bus_, toBus_, toClient_);
}

bool RelayedClient::serve(short clientEvents, short busEvents) {
    const bool open = (!(clientEvents & mayRead) || readClient()) &&
                      (!(busEvents & mayRead) || receive(bus_.get(), toClient_));
    // The last words of one side still go to the other.
    return sendSome(bus_.get(), toBus_) && sendSome(client_.get(), toClient_) && open;
}

bool RelayedClient::readClient() {
    if (begun_)
        return receive(client_.get(), toBus_);
    std::string text;
    const bool open = receive(client_.get(), text);
    const BusHandshake::State state = handshake_.take(text);
    toClient_ += handshake_.takeReply();
    begun_ = state == BusHandshake::State::begun;
    if (begun_)
        toBus_ += handshake_.takeRest();
    return open && state != BusHandshake::State::refused;
}

}  // namespace quorl
