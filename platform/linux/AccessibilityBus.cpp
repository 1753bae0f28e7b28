#include "AccessibilityBus.h"

#include "Handle.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>

namespace quorl {
namespace {

constexpr std::string_view scheme = "unix:";

bool standsForItself(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view("-_/\\*.").find(c) != std::string_view::npos;
}

std::optional<std::string> unescaped(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (standsForItself(text[at])) {
            plain += text[at];
            continue;
        }
        if (text[at] != '%' || at + 2 >= text.size())
            return std::nullopt;
        unsigned char byte = 0;
        const char* digits = text.data() + at + 1;
        const auto [end, error] = std::from_chars(digits, digits + 2, byte, 16);
        if (error != std::errc() || end != digits + 2 || byte == 0)
            return std::nullopt;
        plain += static_cast<char>(byte);
        at += 2;
    }
    return plain;
}

FileDescriptor connected(const BusSocket& bus) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t offset = bus.kind == BusSocket::Kind::abstract ? 1 : 0;
    if (bus.name.size() + 1 > sizeof address.sun_path)
        return {};
    std::memcpy(address.sun_path + offset, bus.name.data(), bus.name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + bus.name.size());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval patience{.tv_sec = 1, .tv_usec = 0};
    // The time-out for sending holds for connecting, too.
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0)
        return {};
    return socket;
}

// The first step of a bus client: it tells its account, as the digits' hexadecimal codes.
bool authenticates(int socket) {
    std::string greeting("\0AUTH EXTERNAL ", 15);
    for (const char digit : std::to_string(geteuid()))
        greeting += fmt::format("{:02x}", digit);
    greeting += "\r\n";
    char answer[3];
    return send(socket, greeting.data(), greeting.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(greeting.size()) &&
           recv(socket, answer, sizeof answer, MSG_WAITALL) == sizeof answer &&
           std::string_view(answer, sizeof answer) == "OK ";
}

}  // namespace

std::optional<BusSocket> soleBusSocket(std::string_view address) {
    if (!address.starts_with(scheme))
        return std::nullopt;
    address.remove_prefix(scheme.size());
    std::optional<BusSocket> found;
    while (!address.empty()) {
        const std::string_view pair = address.substr(0, address.find(','));
        address.remove_prefix(std::min(pair.size() + 1, address.size()));
        const auto equals = pair.find('=');
        if (equals == std::string_view::npos)
            return std::nullopt;
        const std::string_view key = pair.substr(0, equals);
        const auto value = unescaped(pair.substr(equals + 1));
        if (!value || value->empty())
            return std::nullopt;
        if (key == "guid")
            continue;
        if (found || (key != "path" && key != "abstract"))
            return std::nullopt;
        found = {key == "path" ? BusSocket::Kind::file : BusSocket::Kind::abstract, *value};
    }
    return found;
}

bool busAdmitsUs(const BusSocket& bus, std::span<const uid_t> listeners) {
    const FileDescriptor socket = connected(bus);
    ucred peer{};
    socklen_t size = sizeof peer;
    return socket && getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           std::ranges::find(listeners, peer.uid) != listeners.end() && authenticates(socket.get());
}

}  // namespace quorl
