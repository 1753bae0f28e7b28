#include "Command.h"
#include "ConfigParser.h"
#include "Handle.h"
#include "StruckOut.h"
#include "SystemPaths.h"
#include "Workers.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace quorl::control {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view usage =
    "usage: keshctl report FILE\n"
    "\n"
    "Writes a support bundle (.tar.gz), readable for root alone: the configuration\n"
    "without keys, the ends of the logs with what could be a key, code or token\n"
    "struck out, the PAM files, the versions, and what doctor says. Look through it\n"
    "before it is sent: it names users, machines and the server.\n"
    "\n"
    "Exit status: 0 written, 1 failed, 64 misused, 77 not root.\n";

constexpr off_t longestTail = 262'144;
constexpr const char* logName = "/VantorixClient.log";

// The end of a log, from the first whole line on. Never through a link, never waiting for a pipe.
std::string tail(const std::string& path) {
    const FileDescriptor file(
        open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat info {};
    if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return "";
    const off_t from = std::max<off_t>(0, info.st_size - longestTail);
    std::string text(static_cast<std::size_t>(std::min(info.st_size, longestTail)), '\0');
    const ssize_t count = pread(file.get(), text.data(), text.size(), from);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return from > 0 ? text.substr(std::min(text.find('\n'), text.size() - 1) + 1) : text;
}

std::string cleaned(const std::string& log) {
    std::string lines;
    for (const std::string& line : linesOf(log))
        lines += struckOut(line) + "\n";
    return lines;
}

// Settings that are known, each but the keys; what else the file holds stays out.
std::string configuration() {
    const StoredConfig config = readConfig(getConfigFilePath());
    std::string lines = config.state == ConfigState::whole     ? "whole\n"
                        : config.state == ConfigState::damaged ? "damaged\n"
                                                               : "missing\n";
    for (const auto& [name, value] : config.settings.items()) {
        const std::string text = value.is_string() ? value.get<std::string>() : "";
        lines += name + " = " +
                 (name.ends_with("_KEY") ? (text.empty() ? "<empty>" : "<set>") : shown(text)) +
                 "\n";
    }
    return lines;
}

std::string pamFiles(const Machine& machine) {
    std::string text;
    for (const std::string& name : machine.names("/etc/pam.d"))
        text += "== " + name + "\n" + cleaned(machine.text("/etc/pam.d/" + name));
    return text + "== pam_kesh.conf\n" + cleaned(machine.text("/etc/security/pam_kesh.conf"));
}

std::string versions(const Machine& machine) {
    const auto packages = machine.run(
        "dpkg-query", {"-W", "libpam-kesh", "kesh-common", "quorl-login-agent", "libpam-runtime",
                       "openssh-server", "lightdm", "sddm", "gdm3", "libwebkit2gtk-4.1-0"});
    return fmt::format("keshctl {}\n{}{}{}", QUORL_VERSION, packages.value_or(""),
                       machine.run("uname", {"-a"}).value_or(""), machine.text("/etc/os-release"));
}

std::string doctor() {
    constexpr std::chrono::seconds limit{25};
    // A worker's process has keshctl's own words behind its first.
    return Machine::worker({"doctor"}, limit).value_or("doctor did not end in time\n");
}

std::string agentLog() {
    return Machine::worker({"agent-log"}, std::chrono::seconds(5)).value_or("");
}

bool fill(const std::string& folder, const Machine& machine) {
    const std::string support = systemPaths().supportDirectory();
    const std::pair<const char*, std::string> files[] = {
        {"doctor.txt", doctor()},
        {"configuration.txt", configuration()},
        {"log.txt", cleaned(tail(support + logName))},
        {"agent-log.txt", cleaned(agentLog())},
        {"pam.txt", pamFiles(machine)},
        {"versions.txt", versions(machine)},
    };
    for (const auto& [name, text] : files)
        if (!(std::ofstream(folder + "/" + name) << text).flush())
            return false;
    return true;
}

int run(const Machine& machine, const Words& words) {
    if (words.size() != 1 || words.front().starts_with("-"))
        return misused(reportCommand, "see below");
    const std::string path = fs::absolute(words.front());
    // Never over a file that somebody put there, nor through his link.
    const FileDescriptor made(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!made)
        return failed(shown(path) + " cannot be made, or is there already; name another");
    std::string pattern = (fs::temp_directory_path() / "keshctl-XXXXXX").string();
    const char* folder = mkdtemp(pattern.data());
    const std::string content = folder ? std::string(folder) + "/kesh-report" : "";
    const bool whole =
        folder && mkdir(content.c_str(), 0700) == 0 && fill(content, machine) &&
        Machine("")
            .run("tar", {"-C", pattern, "-czf", path, "kesh-report"}, std::chrono::seconds(30))
            .has_value() &&
        fs::file_size(path) > 0;
    std::error_code ignored;
    if (folder)
        fs::remove_all(pattern, ignored);
    if (!whole) {
        fs::remove(path, ignored);
        return failed("the report could not be written; make room and try again");
    }
    tell(shown(path) + " is written. Look through it before it is sent.");
    return exitDone;
}

}  // namespace

int agentLogWorker() {
    const passwd* account = getpwnam(systemPaths().agentAccount.c_str());
    if (!account)
        return exitFailed;
    // From here on with the rights of whoever owns the folder: nothing in it can lead root astray.
    if (setgroups(0, nullptr) != 0 || setgid(account->pw_gid) != 0 || setuid(account->pw_uid) != 0)
        return exitFailed;
    say(tail(systemPaths().supportDirectory() + "/agent" + logName));
    return exitDone;
}

const Command reportCommand{.name = "report",
                            .summary = "write a support bundle without any secret",
                            .usage = usage,
                            .rootOnly = true,
                            .run = run};

}  // namespace quorl::control
