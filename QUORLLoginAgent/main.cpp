#include "AppDelegate.h"
#include "ArgumentDefaults.h"
#include "GtkApplication.h"
#include "Handle.h"
#include "LinuxPortSystem.h"
#include "NewStart.h"
#include "ServerCommunicator.h"
#include "StandardStreams.h"
#include "SystemPaths.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace quorl;

int exitStatus(bool succeeded) {
    return succeeded ? 0 : 1;
}

// An installer's terminal stays clean: what is logged before the log file is open goes nowhere.
void silenceTerminal() {
    const FileDescriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (nowhere)
        dup2(nowhere.get(), STDERR_FILENO);
}

// The command-line actions; nothing when the application shall run.
std::optional<int> runAction(const ArgumentDefaults& defaults) {
    if (defaults.stringForKey("action") != "updateAgentStatus")
        return std::nullopt;
    const std::optional<std::string> status = defaults.stringForKey("status");
    if (status == "install" || status == "uninstall")
        silenceTerminal();
    ServerCommunicator communicator(systemClock());
    if (status == "uninstall")
        return exitStatus(communicator.updateAgentStatus(status));
    if (status == "install")
        return exitStatus(communicator.isAccessKeyExists());
    return std::nullopt;
}

struct Outcome {
    int status;
    bool newStart = false;
    HeldName service = {};
};

Outcome runApplication() {
    const auto application = makeGtkApplication(mainBundle());
    if (!application) {
        std::fprintf(stderr, "QUORLLoginAgent: %s\n", application.error().c_str());
        return {1};
    }
    LinuxPortSystem ports(systemPaths().runtimeDir,
                          {.ownAccount = secure_getenv("QUORL_SERVE_OWN_ACCOUNT") != nullptr});
    int status = 0;
    {
        AppDelegate delegate({**application, ports, mainBundle(), systemClock()});
        delegate.applicationDidFinishLaunching();
        // Here the log is open, and no page's process has been started yet that would inherit them.
        const StandardStreamsInLog streams;
        status = (*application)->run();
    }
    if (!(*application)->wantsNewStart())
        return {status};
    return {status, true, ports.handOverService()};
}

}  // namespace

int main(int argc, char** argv) {
    // Before anything is created: files hold secrets, sockets let requests in.
    umask(077);
    // Whoever names a file there would be handed what decrypts the agent's calls.
    unsetenv("SSLKEYLOGFILE");
    // Keys are in its memory: no core file of it, and no other process of its account reads it.
    prctl(PR_SET_DUMPABLE, 0);
    const ArgumentDefaults defaults(argc, argv);
    if (const auto status = runAction(defaults))
        return *status;
    const NewStart start(argv);
    const Outcome outcome = runApplication();
    if (!outcome.newStart)
        return outcome.status;
    start.begin(outcome.service);
    return 1;
}
