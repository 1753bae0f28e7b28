#include "PortalURL.h"

#include "CommonUtils.h"
#include "Log.h"
#include "ServerAddress.h"

namespace quorl {

std::optional<std::string> portalURL(const Value& config, std::string_view path) {
    const auto server = serverAddress(config);
    if (!server)
        return std::nullopt;
    const std::string base =
        constructServerURL(server->host, server->port, server->contextPath, "");
    // Right behind the port, anything else would make another server of it.
    if (server->contextPath.empty() && !path.empty() && path.front() != '/') {
        logLine("portalURL : the path of the page does not begin with a slash");
        return std::nullopt;
    }
    return encodeBehindServer(base + std::string(path));
}

}  // namespace quorl
