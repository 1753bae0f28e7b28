// keshctl: the administrator's tool: sets the second factor up, switches it on and off, and says
// what is wrong with it.
#include "Command.h"
#include "Logger.h"
#include "SystemPaths.h"
#include "Workers.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace {

using namespace quorl;
using namespace quorl::control;

constexpr std::array commands = {&setupCommand,  &enableCommand,     &disableCommand,
                                 &statusCommand, &doctorCommand,     &offlineCommand,
                                 &unlockCommand, &breakglassCommand, &reportCommand};

void printUsage(FILE* stream) {
    fmt::print(stream, "usage: keshctl COMMAND ...\n\n");
    for (const Command* command : commands)
        fmt::print(stream, "  {:<12}{}\n", command->name, command->summary);
    fmt::print(stream, "\nkeshctl COMMAND --help says more; so does keshctl(8).\n");
}

// Log lines never stand among what is said to the administrator.
void openLog() {
    setLogDestination({open("/dev/null", O_WRONLY | O_CLOEXEC)});
    const std::string folder = systemPaths().supportDirectory();
    if (access(folder.c_str(), W_OK) == 0)
        initLog(folder + "/VantorixClient.log");
}

int run(const Command& command, const Words& words) {
    for (const std::string& word : words)
        if (word == "--help") {
            fmt::print("{}", command.usage);
            return exitDone;
        }
    if (command.rootOnly && geteuid() != 0)
        return failed(fmt::format("{} needs root; run it with sudo", command.name), exitNeedsRoot);
    openLog();
    return command.run(Machine(systemPaths().systemRoot), words);
}

}  // namespace

int main(int argc, char** argv) {
    umask(077);
    // No key of a connection may be written where a caller's variable says.
    unsetenv("SSLKEYLOGFILE");
    const Words words(argv + 1, argv + argc);
    const std::string name = words.empty() ? "" : words.front();
    const Words rest(words.begin() + (words.empty() ? 0 : 1), words.end());
    if (name == "--worker") {
        openLog();
        return runWorker(rest);
    }
    if (name == "--help" || name == "--version") {
        name == "--help" ? printUsage(stdout) : fmt::print("keshctl {}\n", QUORL_VERSION);
        return exitDone;
    }
    for (const Command* command : commands)
        if (command->name == name)
            return run(*command, rest);
    printUsage(stderr);
    return exitUsage;
}
