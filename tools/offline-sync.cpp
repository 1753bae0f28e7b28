// Keeps the offline store from the command line, for the components that link the offline part: the
// sync after an online logon, and the limits around an offline one.
#include "EnrollmentHandler.h"

#include <sys/stat.h>

#include <cstdio>
#include <string_view>

namespace {

using namespace quorl;

constexpr const char* usage =
    "usage: offline-sync sync [TOKEN]   fetch the enrollment that the token names, and prune\n"
    "       offline-sync check USER     may the user be verified offline? Exit status 0 yes,\n"
    "                                   1 no data, 2 limit reached, 3 switched off\n"
    "       offline-sync count USER     count a successful offline verification; 1 at the limit\n"
    "       offline-sync reset USER     after an online verification: start the limits anew\n"
    "\n"
    "USER is the name, an at sign and the domain. What happens is told in the agent's log.\n";

int run(std::string_view action, const std::optional<std::string>& argument) {
    EnrollmentHandler handler;
    if (action == "sync") {
        handler.getEnrollmentData(argument);
        return 0;
    }
    if (action == "check")
        return static_cast<int>(handler.preAuth(*argument));
    if (action == "count")
        return handler.isAttemptLimitedReached(*argument) ? 1 : 0;
    handler.resetOfflineLimit(*argument);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    umask(077);
    const std::string_view action = argc > 1 ? argv[1] : "";
    const bool onUser = action == "check" || action == "count" || action == "reset";
    if (action == "--help") {
        std::fputs(usage, stdout);
        return 0;
    }
    if (!(onUser && argc == 3) && !(action == "sync" && argc <= 3)) {
        std::fputs(usage, stderr);
        return 64;
    }
    return run(action, argc == 3 ? std::optional<std::string>(argv[2]) : std::nullopt);
}
