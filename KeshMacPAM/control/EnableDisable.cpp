#include "Accounts.h"
#include "Arguments.h"
#include "AtomicFile.h"
#include "Doors.h"
#include "PamStack.h"
#include "Sshd.h"

#include <fmt/format.h>

#include <filesystem>
#include <thread>

namespace quorl::control {
namespace {

constexpr std::string_view enableUsage =
    "usage: keshctl enable [--with-sshd]\n"
    "\n"
    "Puts the second factor into the machine's PAM stack, and says which door asks\n"
    "for it from now on. Refuses, and changes nothing, where a login would become\n"
    "impossible.\n"
    "\n"
    "  --with-sshd   also lets sshd ask, by /etc/ssh/sshd_config.d/50-kesh.conf\n"
    "\n"
    "Exit status: 0 enabled, 1 failed, 2 refused, 64 misused, 77 not root.\n";

constexpr std::string_view disableUsage =
    "usage: keshctl disable [--quiet]\n"
    "\n"
    "Takes the second factor out of the machine's PAM stack: the profile, and our\n"
    "lines out of files that were edited by hand. Everybody then gets in by password\n"
    "alone.\n"
    "\n"
    "Exit status: 0 no PAM file names the module, 1 one still does, 64 misused,\n"
    "77 not root.\n";

constexpr std::chrono::seconds updateLimit{60};
// A removal that waits for longer would be killed half-way.
constexpr std::chrono::seconds removalLimit{8};

std::string_view stateWord(Door::State state) {
    switch (state) {
        case Door::State::asked:
            return "asked";
        case Door::State::notAsked:
            return "not asked";
        case Door::State::cannotAsk:
            break;
    }
    return "cannot ask";
}

void printDoors(const Machine& machine) {
    say("door                second factor");
    for (const Door& door : doors(machine, false))
        say(fmt::format("{:<20}{:<12}{}", shown(door.service), stateWord(door.state),
                        wrapped(door.why, 32)));
    const LocalAccounts accounts = localAccounts(machine);
    const bool exempt = moduleOptions(machine).local == pam::Asked::Exempt;
    const std::size_t count = accounts.people.size();
    if (!exempt)
        say("Everybody but root is asked at these doors.");
    else if (accounts.onlyLocal)
        tell(
            fmt::format("Asked: 0 of {} accounts: all are local; `local = require` in "
                        "/etc/security/pam_kesh.conf asks them too.",
                        count));
    else
        tell(
            fmt::format("Asked: the directory's accounts; not the {} local ones (`local = "
                        "require` in /etc/security/pam_kesh.conf asks them too).",
                        count));
}

// Why a login would become impossible; "" when none would.
std::string hindrance(const Machine& machine, bool withSshd) {
    if (wayInWithout(localAccounts(machine), moduleOptions(machine)).empty())
        return "nobody could repair the machine: give root a password (passwd root), or a local "
               "member of the group sudo";
    for (const Door& door : doors(machine, true)) {
        if (door.state != Door::State::cannotAsk)
            continue;
        if (door.service != "sshd")
            return fmt::format("{} cannot ask: {}", door.service, door.why);
        if (!withSshd && sshdSettings(machine)->takesPasswords)
            return "ssh cannot ask, and would deny every password without a reason: sshd has "
                   "KbdInteractiveAuthentication no; keshctl enable --with-sshd mends it";
    }
    return "";
}

std::string whyNotEnabled(const Machine& machine) {
    if (!machine.has("/usr/share/pam-configs/kesh"))
        return "the profile /usr/share/pam-configs/kesh is missing; install libpam-kesh";
    if (const auto line = handWrittenLine(machine))
        return fmt::format(
            "common-auth was edited by hand: {} names {}; bring the line into a "
            "profile of /usr/share/pam-configs or behind the block, and enable "
            "again",
            line->place(), shown(line->module));
    return "pam-auth-update left common-auth as it is; `pam-auth-update --force` says more";
}

// What pam-auth-update has to say, standard error included. It needs the configuration database,
// which an installation that is going on holds: that is waited for, for a while.
Machine::Output updatePam(const Machine& machine, const std::string& action,
                          std::chrono::seconds patience, std::chrono::seconds limit) {
    const std::string program = machine.program("pam-auth-update");
    if (program.empty())
        return tl::unexpected<std::string>("pam-auth-update is not installed");
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (true) {
        auto said = Machine("").run(
            "sh", {"-c", "\"$0\" \"$@\" 2>&1", program, "--package", action, "kesh"}, limit);
        if (!said || said->find("locked by another process") == std::string::npos)
            return said;
        if (std::chrono::steady_clock::now() > deadline)
            return tl::unexpected<std::string>(
                "another installation is going on; wait for its end and try again");
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
}

bool enabled(const Machine& machine) {
    const auto lines = ourLines(authStack(machine, "common-auth"));
    return lines && lines->whole;
}

tl::expected<void, std::string> letSshdAsk(const Machine& machine) {
    std::error_code error;
    const std::string path = machine.file(sshdDropIn);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (auto written = replaceFile(path, asBytes(sshdDropInText), 0644); !written)
        return tl::unexpected(path + ": " + written.error());
    if (const auto sshd = sshdSettings(machine); sshd && !sshd->canPrompt) {
        std::filesystem::remove(path, error);
        return tl::unexpected<std::string>(
            "sshd does not heed /etc/ssh/sshd_config.d; set KbdInteractiveAuthentication yes in "
            "/etc/ssh/sshd_config by hand");
    }
    // One that does not run reads it when it starts.
    (void)machine.run("systemctl", {"try-reload-or-restart", "ssh.service"});
    return {};
}

int enable(const Machine& machine, const Words& words) {
    const auto arguments = Arguments::sort(words, {.flags = {"--with-sshd"}});
    if (!arguments)
        return misused(enableCommand, arguments.error());
    if (!arguments->plain().empty())
        return misused(enableCommand, "see below");
    if (const std::string why = hindrance(machine, arguments->has("--with-sshd")); !why.empty())
        return failed("not enabled: " + why, exitRefused);
    if (arguments->has("--with-sshd"))
        if (auto done = letSshdAsk(machine); !done)
            return failed("not enabled: " + done.error(), exitRefused);
    if (!enabled(machine))
        if (const auto said = updatePam(machine, "--enable", std::chrono::seconds(20), updateLimit);
            !said)
            return failed("not enabled: " + said.error());
    if (!enabled(machine))
        return failed("not enabled: " + whyNotEnabled(machine), exitRefused);
    noteInJournal("the second factor was enabled");
    printDoors(machine);
    tell("Enabled. Keep a root shell open until a login was tried; `keshctl disable` goes back.");
    return exitDone;
}

// The file without our lines, in one replacement that keeps owner and mode.
tl::expected<void, std::string> takeOut(const Machine& machine, const std::string& file) {
    const auto rest = withoutOurLines(machine.text(file));
    return rest ? replaceFile(machine.file(file), asBytes(*rest))
                : tl::expected<void, std::string>();
}

// The first PAM file that names the module, or of which nobody can tell; "" when all are clean.
std::string notClean(const Machine& machine) {
    constexpr std::size_t largestFile = std::size_t{4} << 20;
    std::vector<std::string> names = machine.names("/etc/pam.d");
    names.push_back("common-auth");
    for (const std::string& name : names) {
        std::string file = "/etc/pam.d/" + name;
        std::error_code error;
        if (!std::filesystem::is_regular_file(machine.file(file), error))
            continue;
        const auto content = readFile(machine.file(file), largestFile);
        if (!content || withoutOurLines(toString(*content)))
            return file;
    }
    return "";
}

int disable(const Machine& machine, const Words& words) {
    const auto arguments = Arguments::sort(words, {.flags = {"--quiet"}});
    if (!arguments)
        return misused(disableCommand, arguments.error());
    if (!arguments->plain().empty())
        return misused(disableCommand, "see below");
    const bool quiet = arguments->has("--quiet");
    const bool was = !filesWithOurLines(machine).empty();
    const auto said = updatePam(machine, "--remove", std::chrono::seconds(3), removalLimit);
    // It leaves a file that was edited by hand alone, and says so with status 0.
    for (const std::string& file : filesWithOurLines(machine)) {
        if (auto done = takeOut(machine, file); !done)
            return failed(file + " still names the module: " + done.error());
        if (!quiet)
            tell("Our lines were taken out of " + file + ".");
    }
    if (const std::string left = notClean(machine); !left.empty())
        return failed(left + " still names the module, or cannot be read; mend it by hand");
    if (!said && !quiet)
        tell("pam-auth-update could not be run (" + said.error() + "); the files are clean.");
    if (was)
        noteInJournal("the second factor was disabled");
    if (!quiet)
        say(was ? "Disabled: everybody gets in by password alone." : "It was not enabled.");
    return exitDone;
}

}  // namespace

const Command enableCommand{.name = "enable",
                            .summary = "ask for the second factor from now on",
                            .usage = enableUsage,
                            .rootOnly = true,
                            .run = enable};
const Command disableCommand{.name = "disable",
                             .summary = "ask nobody any more",
                             .usage = disableUsage,
                             .rootOnly = true,
                             .run = disable};

}  // namespace quorl::control
