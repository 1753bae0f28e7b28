// The doctor's checks of our files, the agent and the login screen.
#include "AgentClient.h"
#include "Doctor.h"
#include "Doors.h"
#include "LoginPrograms.h"
#include "SystemPaths.h"
#include "ValueKey.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace quorl::control {
namespace {

constexpr const char* setupAgain = "keshctl setup, see keshctl setup --help";

// Who may use a file that root keeps: nobody but root and the agent's account, which must.
std::string faultOfAccess(const Examination& examination, const std::string& path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return "";
    if (S_ISLNK(info.st_mode))
        return path + " is a link";
    if (info.st_uid != 0)
        return path + " does not belong to root";
    const Value* readers = member(examination.account.get(), "readers");
    const bool groupReads = (info.st_mode & S_IRWXG) != 0;
    if ((info.st_mode & (S_IWGRP | S_IRWXO)) != 0 ||
        (groupReads && !(readers && *readers == info.st_gid)))
        return fmt::format("{} is open to others (mode {:04o})", path, info.st_mode & 07777);
    if (readers && (*readers != info.st_gid || !groupReads))
        return fmt::format("{} cannot be read by the agent, which runs as {}", path,
                           systemPaths().agentAccount);
    return "";
}

// What display managers are told, wherever they are told it: NAME=VALUE, the last one counting.
std::string displaySetting(const Machine& machine, const std::vector<std::string>& folders,
                           const std::string& name) {
    std::string value;
    const auto read = [&](const std::string& path) {
        for (const std::string& line : linesOf(machine.text(path)))
            if (const std::string text = trimmed(line);
                text.starts_with(name) && trimmed(text.substr(name.size())).starts_with('='))
                value = trimmed(text.substr(text.find('=') + 1));
    };
    for (const std::string& folder : folders) {
        if (folder.ends_with(".conf")) {
            read(folder);
            continue;
        }
        for (const std::string& file : machine.names(folder))
            if (file.ends_with(".conf"))
                read(folder + "/" + file);
    }
    return value;
}

const std::vector<std::string> lightdmFiles = {"/usr/share/lightdm/lightdm.conf.d",
                                               "/etc/lightdm/lightdm.conf.d",
                                               "/etc/lightdm/lightdm.conf"};
const std::vector<std::string> sddmFiles = {"/usr/lib/sddm/sddm.conf.d", "/etc/sddm.conf.d",
                                            "/etc/sddm.conf"};
const std::vector<std::string> gdmFiles = {"/etc/gdm3/daemon.conf"};

// The sandbox of the pages' process, as the agent's account makes it; "" when it starts.
std::string sandboxFault(const Machine& machine) {
    const std::string attempt =
        "bwrap --unshare-all --ro-bind / / --proc /proc --dev /dev --tmpfs /tmp true 2>&1 && "
        "echo ok";
    const auto said = machine.run(
        "setpriv", {"--reuid", systemPaths().agentAccount, "--regid", systemPaths().agentAccount,
                    "--clear-groups", "--no-new-privs", "sh", "-c", attempt});
    const std::string line = said ? trimmed(*said) : said.error();
    return line == "ok" ? "" : line.empty() ? "it cannot be started" : line;
}

}  // namespace

Finding checkConfiguration(const Examination& examination) {
    const std::string& path = getConfigFilePath();
    if (!examination.configReadable)
        return needsRoot();
    if (examination.config.state == ConfigState::missing)
        return broken(path + " was never written: nothing is asked for", setupAgain);
    if (examination.config.state == ConfigState::damaged)
        return broken(path + " is damaged, or its keys do not decrypt: asked users are denied",
                      "keshctl setup --renew --installation-key-file FILE");
    const std::string folder = systemPaths().supportDirectory();
    for (const char* file : {"/config.plist", "/value.key"})
        if (const std::string fault = faultOfAccess(examination, folder + file); !fault.empty())
            return broken(fault, fmt::format("chown root:{0} {1} && chmod 0640 {1}",
                                             systemPaths().agentAccount, folder + file));
    if (isDevelopmentValueKey())
        return note("whole; under the development value key, which is no secret",
                    "keshctl setup --value-key-file FILE --renew");
    return ok("whole");
}

Finding checkSwitchedOn(const Examination& examination) {
    if (!examination.configReadable)
        return needsRoot();
    if (examination.config.state != ConfigState::whole)
        return skipped("needs 5");
    if (!isTrue(examination.config.settings, "LOGIN_MFA"))
        return broken("LOGIN_MFA is not \"true\": nobody is asked",
                      "keshctl setup --set LOGIN_MFA=true");
    return ok("LOGIN_MFA is \"true\"");
}

Finding checkAgent(const Examination& examination) {
    const Machine& machine = examination.machine;
    if (machine.has("/.flatpak-info"))
        return broken("/.flatpak-info lies about: pages run without their sandbox",
                      "rm /.flatpak-info");
    const std::string manager = displayManager(machine);
    if (!showsAgentWindow(manager))
        return ok(manager.empty() ? "no login screen here" : "not used by " + manager);
    if (!agentInstalled(machine))
        return broken("the login screen's agent is not installed",
                      "apt-get install quorl-login-agent");
    if (examination.account.get().empty())
        return broken("the name service does not answer in time", "mend it (sssd, nslcd)");
    if (!member(examination.account.get(), "exists"))
        return broken("its account " + systemPaths().agentAccount + " is missing",
                      "dpkg-reconfigure kesh-common");
    if (!machine.has("/usr/lib/systemd/system/QUORLLoginAgent.service") &&
        !machine.has("/lib/systemd/system/QUORLLoginAgent.service"))
        return broken("its unit QUORLLoginAgent.service is missing",
                      "apt-get install --reinstall quorl-login-agent");
    if (!examination.asRoot)
        return needsRoot();
    if (const std::string fault = sandboxFault(machine); !fault.empty())
        return broken("its pages' sandbox does not start: " + fault,
                      "apt-get install bubblewrap; sysctl user.max_user_namespaces=10000");
    if (!machine.has("/run/quorl-greeter/environment"))
        return ok("waits for the login screen, which is not shown now");
    if (!agentListens(agentAddress()))
        return broken("does not listen, though the login screen is shown",
                      "systemctl restart QUORLLoginAgent.service; journalctl -u "
                      "QUORLLoginAgent.service says why it ended");
    return ok("listens, as " + systemPaths().agentAccount);
}

Finding checkLoginManager(const Examination& examination) {
    const Machine& machine = examination.machine;
    const std::string manager = displayManager(machine);
    if (manager.empty())
        return ok("none");
    if (!showsAgentWindow(manager))
        return manager == "gdm-password" ||
                       pam::listed(moduleOptions(machine).services.view(), manager)
                   ? note(manager + " shows no window of ours: codes at its prompt")
                   : note(manager + " is unknown to us, and asks nobody",
                          "name it in services of /etc/security/pam_kesh.conf after a trial");
    const std::string name = manager == "sddm" ? "DisplayCommand" : "greeter-setup-script";
    const std::string script =
        displaySetting(machine, manager == "sddm" ? sddmFiles : lightdmFiles, name);
    if (script.find("/quorl-") == script.npos)
        return broken(manager + " does not start the agent: " + name +
                          (script.empty() ? " is not set" : " is " + script),
                      "run quorl-greeter from " + name + ", or remove that setting");
    return ok(manager + ", in the agent's window");
}

Finding checkAutologin(const Examination& examination) {
    const Machine& machine = examination.machine;
    const std::string manager = displayManager(machine);
    const std::string user = manager == "lightdm"
                                 ? displaySetting(machine, lightdmFiles, "autologin-user")
                             : manager == "sddm" ? displaySetting(machine, sddmFiles, "User")
                             : displaySetting(machine, gdmFiles, "AutomaticLoginEnable") == "true"
                                 ? displaySetting(machine, gdmFiles, "AutomaticLogin")
                                 : "";
    if (!user.empty())
        return broken(manager + " lets " + user + " in without asking anything",
                      "remove the automatic login from its configuration");
    return ok("none");
}

Finding checkSupportFolder(const Examination& examination) {
    const std::string folder = systemPaths().supportDirectory();
    if (!examination.asRoot)
        return needsRoot();
    struct stat info {};
    if (stat(folder.c_str(), &info) != 0)
        return broken(folder + " is missing", "keshctl setup, or reinstall kesh-common");
    for (const std::string& path : {folder, folder + "/offline-data.json", folder + "/dekey.key"})
        if (const std::string fault = faultOfAccess(examination, path); !fault.empty())
            return broken(fault, "dpkg-reconfigure kesh-common");
    // Enough for a counter, a record and the log's next lines.
    constexpr std::uint64_t least = std::uint64_t{10} << 20;
    struct statvfs room {};
    if (statvfs(folder.c_str(), &room) == 0 && room.f_bavail * room.f_frsize < least)
        return broken("less than 10 MiB are free: no code can be counted, so none is accepted",
                      "make room in " + folder);
    return ok("root's, room is left");
}

}  // namespace quorl::control
