#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <optional>
#include <string>

namespace quorl {

/// The socket address of a path; nothing when the path is longer than an address can hold.
inline std::optional<sockaddr_un> socketAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return std::nullopt;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

}  // namespace quorl
