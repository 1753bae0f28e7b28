#pragma once

#include "Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Where the configured server is, in parts of which each can only be what it is: none of them can
/// turn a URL that is put together from them into one of another server.
struct ServerAddress {
    std::string host;         ///< a name in ASCII, an IPv4 address, or an IPv6 one in brackets
    std::string port;         ///< 1 to 65535
    std::string contextPath;  ///< empty, or begins with a slash
};

/// The address that SERVERNAME, PORTNUMBER and CONTEXT_PATH give; nothing where one of them is
/// empty that must not be, and with a log line that names the key where one is no host name,
/// address, port or path.
std::optional<ServerAddress> serverAddress(const Value& config);

/// The host as URLs hold it: names with letters beyond ASCII as punycode (UTS 46), IPv6 addresses
/// in brackets. Nothing for what is neither a name nor an address.
std::optional<std::string> asciiHost(std::string_view host);

/// The URL percent-encoded behind its server (see encodeURLQuery), which stays as it is.
std::string encodeBehindServer(std::string_view url);

}  // namespace quorl
