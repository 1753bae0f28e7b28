#include "HostChannel.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace quorl {
namespace {

using namespace std::chrono;

constexpr seconds startWait{5};
// Leaves room for the packet's other fields.
constexpr std::size_t longestText = verifier::packetLimit - 64;

FileDescriptor watchHost(int socket) {
    ucred host{};
    socklen_t size = sizeof host;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &host, &size) != 0 || host.pid <= 0)
        return {};
    return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, host.pid, 0)));
}

std::string_view fitting(std::string_view text) {
    if (text.size() <= longestText)
        return text;
    std::size_t end = longestText;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end);
}

struct Incoming {
    std::array<unsigned char, verifier::packetLimit + 1> bytes{};
    verifier::Received packet{};
};

// False when there is no packet that can be read.
bool receive(int socket, Incoming& incoming) {
    ssize_t size = 0;
    do
        size = recv(socket, incoming.bytes.data(), incoming.bytes.size(), MSG_DONTWAIT);
    while (size < 0 && errno == EINTR);
    if (size <= 0 || static_cast<std::size_t>(size) > verifier::packetLimit)
        return false;
    incoming.packet = {incoming.bytes.data(), static_cast<std::size_t>(size)};
    return true;
}

int pollTime(steady_clock::time_point until) {
    const auto left = ceil<milliseconds>(until - steady_clock::now());
    return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 3'600'000));
}

}  // namespace

HostChannel::HostChannel(FileDescriptor socket, Gone gone)
    : socket_(std::move(socket)),
      host_(watchHost(socket_.get())),
      gone_(std::move(gone)),
      aliveAt_(steady_clock::now() + verifier::aliveEvery) {}

void HostChannel::leave(std::string_view why) {
    gone_(why);
    _exit(EXIT_FAILURE);
}

void HostChannel::send(const verifier::Packet& packet) {
    ssize_t sent = 0;
    do
        sent = ::send(socket_.get(), packet.bytes.data(), packet.size, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    if (packet.size == 0 || sent != static_cast<ssize_t>(packet.size))
        leave("the sign-in was cancelled");
}

// Returns when the time is up or something can be read: of the host, or of the others.
void HostChannel::watch(int timeout, int one, int other, bool& readable) {
    std::array<pollfd, 4> entries{
        {{.fd = one, .events = POLLIN, .revents = 0},
         {.fd = other, .events = POLLIN, .revents = 0},
         {.fd = socket_.get(), .events = POLLIN, .revents = 0},
         {.fd = host_ ? host_.get() : -1, .events = POLLIN, .revents = 0}}};
    if (poll(entries.data(), entries.size(), timeout) <= 0)
        return;
    if (entries[3].revents != 0)
        leave("the login program ended");
    readable = entries[0].revents != 0 || entries[1].revents != 0 || entries[2].revents != 0;
    // Outside a question the module has nothing to say: what can be read there is its end.
    if (entries[2].revents != 0 && one != socket_.get())
        leave("the sign-in was cancelled");
}

SignInStart HostChannel::start() {
    bool readable = false;
    const auto end = steady_clock::now() + startWait;
    while (!readable && steady_clock::now() < end)
        watch(pollTime(end), socket_.get(), -1, readable);
    Incoming incoming;
    const auto start =
        receive(socket_.get(), incoming) ? verifier::decodeStart(incoming.packet) : std::nullopt;
    if (!start)
        leave("no start of this version");
    return {.service = std::string(start->service),
            .user = std::string(start->user),
            .tty = std::string(start->tty),
            .rhost = std::string(start->rhost),
            .page = std::string(start->page),
            .mode = start->mode,
            .key = start->key,
            .echo = start->echo,
            .end = steady_clock::now() + start->left};
}

void HostChannel::alive() {
    verifier::Packet packet;
    verifier::encodeAlive(packet);
    send(packet);
    aliveAt_ = steady_clock::now() + verifier::aliveEvery;
}

void HostChannel::say(std::string_view text, bool error) {
    verifier::Packet packet;
    verifier::encode(verifier::Say{error, fitting(text)}, packet);
    send(packet);
}

HostReply HostChannel::ask(std::string_view text, bool hidden) {
    verifier::Packet packet;
    verifier::encode(verifier::Ask{hidden, fitting(text)}, packet);
    send(packet);
    bool readable = false;
    while (!readable)
        watch(-1, socket_.get(), -1, readable);
    Incoming incoming;
    if (!receive(socket_.get(), incoming))
        leave("the sign-in was cancelled");
    const auto reply = verifier::decodeReply(incoming.packet);
    if (!reply)
        leave("the module says what it must not");
    HostReply given{reply->answer, std::string(reply->text)};
    explicit_bzero(incoming.bytes.data(), incoming.bytes.size());
    alive();
    return given;
}

HostChannel::Wait HostChannel::waitFor(int one, int other, SteadyTime until) {
    for (;;) {
        if (steady_clock::now() >= aliveAt_)
            alive();
        bool readable = false;
        watch(pollTime(std::min(until, aliveAt_)), one, other, readable);
        if (readable)
            return Wait::readable;
        if (steady_clock::now() >= until)
            return Wait::timeUp;
    }
}

void HostChannel::verdict(verifier::Verdict verdict) {
    verifier::Packet packet;
    verifier::encode(verdict, packet);
    // Whoever no longer takes it has been denied by that.
    ::send(socket_.get(), packet.bytes.data(), packet.size, MSG_NOSIGNAL);
    socket_.reset();
}

}  // namespace quorl
