#include "Doors.h"

#include "LoginPrograms.h"
#include "PamStack.h"
#include "Sshd.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace quorl::control {
namespace {

// Services of /etc/pam.d through which nobody comes in from outside, or not by a password.
constexpr std::array<std::string_view, 13> noDoors = {"chfn",
                                                      "chsh",
                                                      "chpasswd",
                                                      "newusers",
                                                      "passwd",
                                                      "cron",
                                                      "atd",
                                                      "other",
                                                      "runuser",
                                                      "runuser-l",
                                                      "lightdm-greeter",
                                                      "sddm-greeter",
                                                      "gdm-launch-environment"};

bool isDoor(const std::string& service) {
    return !service.starts_with("common-") && !service.starts_with("systemd-") &&
           service.find(".dpkg-") == service.npos &&
           std::find(noDoors.begin(), noDoors.end(), service) == noDoors.end();
}

bool reachesCommonAuth(const PamStack& stack) {
    return std::any_of(stack.begin(), stack.end(), [](const PamLine& line) {
        return line.file == "/etc/pam.d/common-auth" || line.module == "pam_kesh.so";
    });
}

Door sshDoor(const Machine& machine, Door door) {
    const auto sshd = sshdSettings(machine);
    if (!sshd)
        return door;
    if (!sshd->usesPam)
        return {door.service, Door::State::notAsked, "sshd has UsePAM no"};
    if (!sshd->canPrompt)
        return {door.service, Door::State::cannotAsk, "sshd has KbdInteractiveAuthentication no"};
    if (sshd->takesKeysAlone)
        door.why = "passwords; a public key alone gets in unasked";
    return door;
}

Door lookAt(const Machine& machine, const std::string& service, bool enabled) {
    const auto options = moduleOptions(machine, service);
    const PamStack stack = authStack(machine, service);
    Door door{service, Door::State::asked, ""};
    if (!reachesCommonAuth(stack))
        return {service, Door::State::notAsked, "does not come through common-auth"};
    if (!pam::listed(options.services.view(), service))
        return {service, Door::State::notAsked, "not among the services of pam_kesh.conf"};
    if (!enabled && !ourLines(stack))
        return {service, Door::State::notAsked, "the second factor is not enabled"};
    if (service == "sshd")
        return sshDoor(machine, door);
    const bool window = showsAgentWindow(service) && agentInstalled(machine) &&
                        options.effectiveMode() != verifier::Mode::Text;
    if (service == "sddm" && !window)
        return {service, Door::State::cannotAsk,
                "its greeter shows no second prompt; install quorl-login-agent"};
    door.why = window ? "in the agent's window" : "codes at the prompt";
    return door;
}

}  // namespace

pam::Options moduleOptions(const Machine& machine, const std::string& service) {
    pam::Options options;
    readOptionsFile(machine.file("/etc/security/pam_kesh.conf").c_str(), service, options);
    return options;
}

std::vector<Door> doors(const Machine& machine, bool enabled) {
    std::vector<Door> doors;
    for (const std::string& service : machine.names("/etc/pam.d"))
        if (isDoor(service))
            doors.push_back(lookAt(machine, service, enabled));
    return doors;
}

std::string displayManager(const Machine& machine) {
    const std::string path = trimmed(machine.text("/etc/X11/default-display-manager"));
    const std::string name = path.substr(path.rfind('/') + 1);
    if (name.empty() || machine.program(name).empty())
        return "";
    return name == "gdm3" ? "gdm-password" : name;
}

bool agentInstalled(const Machine& machine) {
    const std::string helper = KESH_HELPER;
    return machine.has(helper.substr(0, helper.rfind('/')) + "/QUORLLoginAgent");
}

std::string wayInWithout(const LocalAccounts& accounts, const pam::Options& options) {
    if (accounts.rootHasPassword && options.root == pam::Asked::Exempt)
        return "root, by password";
    if (!accounts.administrators.empty() && options.local == pam::Asked::Exempt)
        return accounts.administrators.front() + ", a local administrator";
    return "";
}

}  // namespace quorl::control
