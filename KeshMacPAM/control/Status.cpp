#include "AgentClient.h"
#include "Command.h"
#include "ConfigParser.h"
#include "Doors.h"
#include "EnrollmentHandler.h"
#include "Exemptions.h"
#include "PamStack.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace quorl::control {
namespace {

constexpr std::string_view usage =
    "usage: keshctl status [USER]\n"
    "\n"
    "Server, agent, doors and, for USER, record, limit and lock-out on one screen.\n"
    "\n"
    "Exit status: 0 shown, 1 USER is unknown, 64 misused, 77 not root.\n";

void row(std::string_view name, const std::string& text) {
    constexpr std::size_t indent = 14;
    say(fmt::format("{:<{}}{}", name, indent, wrapped(shown(text), indent)));
}

std::string serverState(const StoredConfig& config) {
    if (config.state == ConfigState::missing)
        return "not set up; see keshctl setup --help";
    if (config.state == ConfigState::damaged)
        return "the configuration is damaged; see keshctl doctor";
    const std::string name =
        configText(config.settings, "SERVERNAME") + ":" + configText(config.settings, "PORTNUMBER");
    constexpr std::chrono::seconds limit{16};
    const Value server =
        Value::parse(Machine::worker({"server"}, limit).value_or("{}"), nullptr, false);
    constexpr std::int64_t success = 200;
    return name + (integerValue(server, "connected") != 1 ? ", silent"
                   : integerValue(server, "signed") == success
                       ? ", accepts this machine"
                       : ", answers, but accepts no signed call");
}

std::string doorNames(const Machine& machine, Door::State state) {
    std::string names;
    for (const Door& door : doors(machine, false))
        if (door.state == state)
            names += (names.empty() ? "" : ", ") + door.service;
    return names.empty() ? "none" : names;
}

std::string standingText(const Value& known) {
    switch (static_cast<PreAuthResult>(integerValue(known, "standing"))) {
        case PreAuthResult::allowed:
            return fmt::format("{} codes of {} methods{}", integerValue(known, "factors"),
                               integerValue(known, "methods"),
                               stringValue(known, "limit").value_or(""));
        case PreAuthResult::noOfflineData:
            return "no record";
        case PreAuthResult::limitReached:
            return "limit reached";
        case PreAuthResult::offlineMFADisabled:
            break;
    }
    return "switched off";
}

int showUser(const std::string& user) {
    constexpr std::chrono::seconds limit{10};
    const Value known =
        Value::parse(Machine::worker({"user", user}, limit).value_or("{}"), nullptr, false);
    const auto record = stringValue(known, "record");
    if (!record)
        return failed("there is no account " + shown(user));
    row("user", *record);
    row("offline", standingText(known));
    row("synced", stringValue(known, "synced").value_or("never"));
    const auto locked = integerValue(known, "lockedFor");
    row("lock-out", locked > 0 ? fmt::format("{} s more", locked) : "none");
    return exitDone;
}

int run(const Machine& machine, const Words& words) {
    if (words.size() > 1 || (!words.empty() && words.front().starts_with("-")))
        return misused(statusCommand, "see below");
    const StoredConfig config = readConfig(getConfigFilePath());
    row("server", serverState(config));
    row("second factor", isTrue(config.settings, "LOGIN_MFA") ? "switched on" : "switched off");
    row("enabled", ourLines(authStack(machine, "common-auth")) ? "yes" : "no");
    row("asked at", doorNames(machine, Door::State::asked));
    row("not asked at", doorNames(machine, Door::State::notAsked));
    if (const std::string dumb = doorNames(machine, Door::State::cannotAsk); dumb != "none")
        row("cannot ask", dumb);
    row("agent", agentListens(agentAddress()) ? "listens" : "does not run");
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    const auto end =
        pam::breakGlass(machine.file("/run/kesh/breakglass").c_str(), now.time_since_epoch());
    row("break-glass",
        end ? fmt::format("until {:%F %T}", fmt::localtime(static_cast<std::time_t>(end->count())))
            : "none");
    return words.empty() ? int{exitDone} : showUser(words.front());
}

}  // namespace

const Command statusCommand{.name = "status",
                            .summary = "server, agent, doors and a user's record on one screen",
                            .usage = usage,
                            .rootOnly = true,
                            .run = run};

}  // namespace quorl::control
