// The doctor's checks of the login programs' side: stack, module, helper, ways in.
#include "Accounts.h"
#include "Doctor.h"
#include "Doors.h"
#include "PamStack.h"
#include "Sshd.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <set>

namespace quorl::control {
namespace {

// A line before ours by which somebody gets past us, in words; "" when there is none.
std::string wayPast(const PamStack& stack, std::size_t ours) {
    for (std::size_t i = 0; i < ours; ++i) {
        const PamLine& line = stack[i];
        // Only for who is root already.
        if (line.module == "pam_rootok.so")
            continue;
        if (line.sufficient())
            return fmt::format("{} ({}) lets in before us", line.place(), line.module);
        const std::size_t jump = line.control.find("success=");
        if (jump == line.control.npos)
            continue;
        const int lines = std::atoi(line.control.c_str() + jump + std::string("success=").size());
        if (lines > 0 && i + static_cast<std::size_t>(lines) + 1 > ours)
            return fmt::format("{} ({}) jumps past us", line.place(), line.module);
    }
    return "";
}

std::string faultOf(const Machine& machine, const std::string& door) {
    const PamStack stack = authStack(machine, door);
    const auto lines = ourLines(stack);
    if (!lines)
        return "our lines are not in its stack";
    if (!lines->whole)
        return fmt::format("our lines at {} are not whole", stack[lines->first].place());
    return wayPast(stack, lines->first);
}

// Doors that ask no second factor, and that somebody may not think of. One for automatic logins
// lies on every machine with a login screen and opens nothing by itself: check 16 looks whether it
// is used.
struct OtherDoors {
    std::string names;
    bool opens = false;
};

OtherDoors otherDoors(const Machine& machine) {
    OtherDoors others;
    for (const std::string& name : machine.names("/etc/pam.d"))
        if (name == "polkit-1" || name == "gdm-fingerprint" || name.starts_with("gdm-smartcard") ||
            name.ends_with("-autologin"))
            if (!pam::listed(moduleOptions(machine).services.view(), name)) {
                others.names += (others.names.empty() ? "" : ", ") + name;
                others.opens = others.opens || !name.ends_with("-autologin");
            }
    return others;
}

std::string modulePath(const Machine& machine) {
    for (const char* folder : {"/usr/lib/", "/lib/"})
        for (const std::string& name : machine.names(folder))
            if (std::string path = folder + name + "/security/pam_kesh.so"; machine.has(path))
                return path;
    return "";
}

// Why root's programs must not use the file; "" when they may.
std::string notRoots(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
        return "is missing";
    if (info.st_uid != 0)
        return "does not belong to root";
    return (info.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? "is writable by others than root" : "";
}

}  // namespace

Finding checkProfile(const Examination& examination) {
    const PamStack stack = authStack(examination.machine, "common-auth");
    const auto lines = ourLines(stack);
    if (!lines)
        return broken("not in common-auth: nobody is asked", "keshctl enable");
    if (!lines->whole)
        return broken(stack[lines->first].place() + ": our four lines are not whole",
                      "keshctl disable, then keshctl enable");
    const bool behind =
        std::any_of(stack.begin(), stack.begin() + static_cast<std::ptrdiff_t>(lines->first),
                    [](const PamLine& line) { return line.module == "pam_permit.so"; });
    if (!behind)
        return broken(stack[lines->first].place() + ": our lines stand before the password's",
                      "move them behind pam_permit.so, or keshctl disable and keshctl enable");
    return ok("enabled, whole, behind the password");
}

Finding checkDoors(const Examination& examination) {
    const Machine& machine = examination.machine;
    if (const auto lines = ourLines(authStack(machine, "common-auth")); !lines || !lines->whole)
        return skipped("needs 1");
    std::string asked;
    for (const Door& door : doors(machine, true)) {
        if (door.state == Door::State::notAsked)
            continue;
        if (const std::string fault = faultOf(machine, door.service); !fault.empty())
            return broken(door.service + ": " + fault, "mend /etc/pam.d/" + door.service);
        asked += (asked.empty() ? "" : ", ") + door.service;
    }
    const OtherDoors others = otherDoors(machine);
    if (asked.empty())
        return broken("no door of this machine asks",
                      "name its services in /etc/security/pam_kesh.conf");
    if (others.names.empty())
        return ok(asked);
    const std::string text = asked + "; without us: " + others.names;
    return others.opens ? note(text) : ok(text);
}

Finding checkModule(const Examination& examination) {
    const std::string path = modulePath(examination.machine);
    const char* reinstall = "apt-get install --reinstall libpam-kesh";
    if (path.empty())
        return broken("pam_kesh.so is not installed", reinstall);
    const std::string file = examination.machine.file(path);
    if (const std::string why = notRoots(file); !why.empty())
        return broken(path + " " + why, reinstall);
    const auto said = Machine::worker({"module", file}, std::chrono::seconds(8));
    if (!said || trimmed(*said) != "ok")
        return broken(path + " cannot be loaded: " + (said ? trimmed(*said) : said.error()),
                      reinstall);
    return ok("loads");
}

Finding checkHelper(const Examination& examination) {
    const char* reinstall = "apt-get install --reinstall kesh-common";
    const std::string file = examination.machine.file(KESH_HELPER);
    if (const std::string why = notRoots(file); !why.empty())
        return broken(std::string(KESH_HELPER) + " " + why, reinstall);
    // By hand it says one sentence and ends with the status of misuse.
    const auto said =
        Machine("").run("sh", {"-c", "\"$0\" 2>&1 </dev/null; echo \"status $?\"", file});
    if (!said || said->find("status 64") == std::string::npos)
        return broken(
            std::string(KESH_HELPER) + " does not run: " + (said ? trimmed(*said) : said.error()),
            reinstall);
    std::set<std::string> versions;
    const auto packages = examination.machine.run(
        "dpkg-query",
        {"-W", "-f", "${Version}\n", "libpam-kesh", "kesh-common", "quorl-login-agent"});
    for (const std::string& line : linesOf(packages.value_or("")))
        if (!line.empty())
            versions.insert(line);
    if (versions.size() > 1)
        return broken(
            "packages of several versions: " + fmt::format("{}", fmt::join(versions, ", ")),
            "apt-get install libpam-kesh kesh-common quorl-login-agent");
    return ok(versions.empty() ? "runs" : "runs, version " + *versions.begin());
}

Finding checkWayIn(const Examination& examination) {
    if (!examination.asRoot)
        return needsRoot();
    const std::string way =
        wayInWithout(localAccounts(examination.machine), moduleOptions(examination.machine));
    if (way.empty())
        return broken("nobody gets in when the second factor fails",
                      "passwd root, or adduser NAME sudo for a local account");
    return ok(way);
}

Finding checkSshd(const Examination& examination) {
    const auto sshd = sshdSettings(examination.machine);
    if (!sshd)
        return ok("no sshd here");
    if (!pam::listed(moduleOptions(examination.machine).services.view(), "sshd"))
        return note("sshd is not among the services: it does not ask");
    if (!sshd->usesPam)
        return broken("sshd has UsePAM no: it does not ask",
                      "set UsePAM yes in /etc/ssh/sshd_config and reload ssh");
    if (!sshd->canPrompt)
        return broken("sshd cannot prompt: every password is denied", "keshctl enable --with-sshd");
    if (sshd->takesKeysAlone)
        return note("prompts; a public key alone gets in unasked",
                    "AuthenticationMethods publickey,keyboard-interactive keyboard-interactive");
    return ok("prompts");
}

}  // namespace quorl::control
