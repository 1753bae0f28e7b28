#include "AccessibilityBus.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstring>

namespace quorl {
namespace {

constexpr std::string_view scheme = "unix:";
constexpr std::size_t longestAnswer = 200;
constexpr std::chrono::seconds patience{1};

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
    const timeval limit{.tv_sec = patience.count(), .tv_usec = 0};
    // The time-out for sending holds for connecting, too.
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0)
        return {};
    return socket;
}

// The first step of a bus client: it tells its account, as the digits' hexadecimal codes. Gives
// what stands behind the bus's OK. Byte by byte, so that nothing of what follows is taken.
std::optional<std::string> authenticated(int socket) {
    std::string greeting("\0AUTH EXTERNAL ", 15);
    for (const char digit : std::to_string(geteuid()))
        greeting += fmt::format("{:02x}", digit);
    greeting += "\r\n";
    if (send(socket, greeting.data(), greeting.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(greeting.size()))
        return std::nullopt;
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::string answer;
    char byte = 0;
    while (!answer.ends_with("\r\n")) {
        if (answer.size() == longestAnswer || std::chrono::steady_clock::now() > deadline ||
            recv(socket, &byte, 1, 0) != 1)
            return std::nullopt;
        answer += byte;
    }
    if (!answer.starts_with("OK "))
        return std::nullopt;
    return answer.substr(3, answer.size() - 5);
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

std::optional<AdmittingBus> admittedBy(const BusSocket& bus, std::span<const uid_t> listeners) {
    FileDescriptor socket = connected(bus);
    ucred peer{};
    socklen_t size = sizeof peer;
    if (!socket || getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
        std::ranges::find(listeners, peer.uid) == listeners.end())
        return std::nullopt;
    auto guid = authenticated(socket.get());
    if (!guid)
        return std::nullopt;
    return AdmittingBus{std::move(socket), std::move(*guid)};
}

}  // namespace quorl
