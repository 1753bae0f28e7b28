#include "Workers.h"

#include "ConfigParser.h"
#include "ServerCommunicator.h"
#include "SystemPaths.h"

#include <dlfcn.h>
#include <pwd.h>

namespace quorl::control {

int reportRemovalWorker() {
    const Value& config = getProductConfig(getConfigFilePath());
    // A communicator without an identity would begin by asking for one.
    if (configText(config, "AGENT_ID").empty() || configText(config, "ACCESS_KEY").empty()) {
        say("the machine is not registered");
        return exitFailed;
    }
    ServerCommunicator server(systemClock());
    if (!server.updateAgentStatus("uninstall")) {
        say("the server could not be told");
        return exitFailed;
    }
    say("ok");
    return exitDone;
}

int accountWorker() {
    Value known = {{"asked", 1}};
    if (getpwnam(systemPaths().agentAccount.c_str()))
        known["exists"] = 1;
    if (const auto readers = readersGroup())
        known["readers"] = *readers;
    say(known.dump());
    return exitDone;
}

int moduleWorker(const std::string& path) {
    // Kept: what a module's library leaves behind may call it at the end.
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        const char* why = dlerror();
        say(why ? shown(why) : "unknown");
        return exitFailed;
    }
    const bool whole = dlsym(module, "pam_sm_authenticate") && dlsym(module, "pam_sm_setcred");
    say(whole ? "ok" : "it is no module for authentication");
    return whole ? exitDone : exitFailed;
}

int runWorker(const Words& words) {
    const std::string name = words.empty() ? "" : words.front();
    if (name == "register")
        return registerWorker();
    if (name == "report-removal")
        return reportRemovalWorker();
    if (name == "account")
        return accountWorker();
    if (name == "server")
        return serverWorker();
    if (name == "user" && words.size() == 2)
        return userWorker(words[1]);
    if (name == "module" && words.size() == 2)
        return moduleWorker(words[1]);
    if (name == "doctor")
        return doctorCommand.run(Machine(systemPaths().systemRoot), {});
    if (name == "agent-log")
        return agentLogWorker();
    return exitUsage;
}

}  // namespace quorl::control
