// The doctor's checks of the way to the server and of what the server makes of this machine.
#include "Doctor.h"

#include <fmt/format.h>

#include <cstdlib>

namespace quorl::control {
namespace {

std::optional<Finding> unaskable(const Examination& examination) {
    if (!examination.configReadable)
        return needsRoot();
    if (configText(examination.config.settings, "SERVERNAME").empty())
        return skipped("needs 5");
    return std::nullopt;
}

bool resolved(const Value& server) {
    return member(server, "addresses") != nullptr || stringValue(server, "proxy");
}

bool connected(const Value& server) {
    return integerValue(server, "connected") == 1;
}

std::string serverText(const Examination& examination) {
    return configText(examination.config.settings, "SERVERNAME") + ":" +
           configText(examination.config.settings, "PORTNUMBER");
}

}  // namespace

Finding checkName(const Examination& examination) {
    if (const auto end = unaskable(examination))
        return *end;
    const Value& server = examination.server.get();
    const std::string name = configText(examination.config.settings, "SERVERNAME");
    if (const auto addresses = stringValue(server, "addresses"))
        return ok(*addresses);
    if (const auto proxy = stringValue(server, "proxy"))
        return note(name + " is left to the proxy to resolve");
    return broken(
        name + " does not resolve: " + stringValue(server, "why").value_or("no answer in time"),
        "mend /etc/resolv.conf or the name service, or keshctl setup --server");
}

Finding checkPort(const Examination& examination) {
    if (const auto end = unaskable(examination))
        return *end;
    const Value& server = examination.server.get();
    if (!resolved(server))
        return skipped("needs 8");
    const auto proxy = stringValue(server, "proxy");
    const std::string through = proxy ? " through the proxy " + *proxy : "";
    if (!connected(server))
        return broken(serverText(examination) + " does not answer" + through + ": " +
                          stringValue(server, "why").value_or("no answer in time"),
                      "start the server, open the firewall, or keshctl setup --port");
    return ok("answers" + through);
}

Finding checkCertificate(const Examination& examination) {
    if (const auto end = unaskable(examination))
        return *end;
    const Value& server = examination.server.get();
    if (!connected(server))
        return skipped("needs 9");
    if (!isTrue(examination.config.settings, "RESTRICT_BADCERT"))
        return broken("is not looked at: RESTRICT_BADCERT is not \"true\"",
                      "keshctl setup --set RESTRICT_BADCERT=true");
    if (const auto fault = stringValue(server, "certificate"))
        return broken(*fault,
                      "put the authority's certificate into "
                      "/usr/local/share/ca-certificates (.crt) and run "
                      "update-ca-certificates, or mend the server's certificate");
    if (const auto why = stringValue(server, "unseen"))
        return note("cannot be told, the server being too slow: " + *why, "run it again");
    return ok("trusted");
}

Finding checkClock(const Examination& examination) {
    if (const auto end = unaskable(examination))
        return *end;
    const Value& server = examination.server.get();
    if (!connected(server))
        return skipped("needs 9");
    if (!member(server, "ahead"))
        return note("the server tells no time");
    // Codes of 30 s fail before signatures do.
    constexpr std::int64_t tooFar = 60;
    const std::int64_t ahead = integerValue(server, "ahead");
    const std::string text =
        fmt::format("{} s {} the server's", std::abs(ahead), ahead < 0 ? "behind" : "ahead of");
    if (std::abs(ahead) > tooFar)
        return broken(text, "timedatectl set-ntp true, or set the clock");
    return ok(text);
}

Finding checkRegistration(const Examination& examination) {
    if (!examination.configReadable)
        return needsRoot();
    if (examination.config.state != ConfigState::whole)
        return skipped("needs 5");
    const Value& settings = examination.config.settings;
    for (const char* key : {"AGENT_ID", "ACCESS_KEY"})
        if (configText(settings, key).empty())
            return broken(std::string("no ") + key + ": not registered",
                          "keshctl setup --renew --installation-key-file FILE");
    return ok("agent " + configText(settings, "AGENT_ID"));
}

Finding checkSignature(const Examination& examination) {
    if (const auto end = unaskable(examination))
        return *end;
    const Value& server = examination.server.get();
    for (const char* key : {"AGENT_ID", "ACCESS_KEY"})
        if (configText(examination.config.settings, key).empty())
            return skipped("needs 12");
    if (!connected(server))
        return skipped("needs 9");
    if (stringValue(server, "certificate") &&
        isTrue(examination.config.settings, "RESTRICT_BADCERT"))
        return skipped("needs 10");
    constexpr std::int64_t success = 200;
    const std::int64_t status = integerValue(server, "signed");
    if (status != success)
        return broken(status == 0 ? "no answer in time"
                                  : fmt::format("the server answers with status {}", status),
                      "mend the clock if 11 is off, else keshctl setup --renew "
                      "--installation-key-file FILE");
    return ok("accepted");
}

}  // namespace quorl::control
