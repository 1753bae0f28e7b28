#include "CertificateSettings.h"
#include "CommonUtils.h"
#include "ConfigParser.h"
#include "HttpClient.h"
#include "ServerAddress.h"
#include "ServerCommunicator.h"
#include "SystemPaths.h"
#include "Workers.h"

#include <fmt/format.h>

namespace quorl::control {
namespace {

constexpr HttpLimits limits{.idle = std::chrono::seconds(10), .total = std::chrono::seconds(20)};

int say(int status, const std::string& sentence) {
    control::say(sentence);
    return status;
}

// Before the installation key is shown to anybody, and since a registration does not tell why it
// failed.
std::optional<std::string> unreachable(const Value& config) {
    const auto address = serverAddress(config);
    if (!address)
        return "host, port or context path of the server cannot be used; see keshctl setup --help";
    HttpClient client(callCertificatePolicy(config), limits);
    const Value reply = client.makeSyncRequest(
        "GET", constructServerURL(address->host, address->port, address->contextPath, "/"), "", "",
        Value::object());
    const auto error = stringValue(reply, "ERROR_MSG");
    if (!error)
        return std::nullopt;
    if (*error == "BAD_CERT")
        return fmt::format(
            "the certificate of {}:{} is not trusted here; install its authority "
            "with update-ca-certificates and run setup again",
            address->host, address->port);
    return fmt::format(
        "{}:{} does not answer ({}); look at host, port and network, and run setup "
        "again",
        address->host, address->port, shown(*error));
}

}  // namespace

int registerWorker() {
    const Value& config = getProductConfig(getConfigFilePath());
    if (productConfigState() != ConfigState::whole)
        return say(exitFailed,
                   "the stored keys do not decrypt under the value key; run setup with --renew "
                   "and a new installation key");
    if (const auto why = unreachable(config))
        return say(exitFailed, *why);
    const bool known = !configText(config, "ACCESS_KEY").empty();
    ServerCommunicator server(systemClock());
    if (!server.isAccessKeyExists())
        return say(exitFailed,
                   fmt::format("the server did not register this machine (status {}); the "
                               "installation key may be wrong or used up, the clock off, or the "
                               "value key another than the server's",
                               server.lastStatus()));
    const auto reply = server.sendRequestWithAuthHeader(
        "/RestAPI/logonagent/mfa/getOfflineEnrollment", "POST", nullptr, "", limits);
    constexpr long success = 200;
    if (!reply || member(*reply, "ERROR_MSG") || server.lastStatus() != success)
        return say(exitFailed,
                   fmt::format("the server refuses this machine's signature (status {}); {}",
                               server.lastStatus(),
                               known ? "run setup with --renew and a new installation key"
                                     : "look at the machine's clock and run setup again"));
    return say(exitDone, "ok " + configText(config, "AGENT_ID"));
}

}  // namespace quorl::control
