#include "PortalURL.h"

#include "CommonUtils.h"
#include "ConfigParser.h"

namespace quorl {

std::optional<std::string> portalURL(const Value& config, std::string_view path) {
    const std::string server = configText(config, "SERVERNAME");
    const std::string port = configText(config, "PORTNUMBER");
    if (server.empty() || port.empty())
        return std::nullopt;
    const std::string base =
        constructServerURL(server, port, configText(config, "CONTEXT_PATH"), "");
    return encodeURLQuery(base + std::string(path));
}

}  // namespace quorl
