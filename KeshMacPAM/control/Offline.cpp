#include "Arguments.h"
#include "EnrollmentHandler.h"

#include <iostream>
#include <optional>

namespace quorl::control {
namespace {

constexpr std::string_view usage =
    "usage: keshctl offline sync        fetch the enrollment that the token on\n"
    "                                   standard input names, and prune; exit status\n"
    "                                   0 when a record was stored, 1 when none was\n"
    "       keshctl offline check USER  may the user be verified offline? Exit\n"
    "                                   status 0 yes, 1 no data, 2 limit reached,\n"
    "                                   3 switched off\n"
    "       keshctl offline count USER  count a successful offline verification;\n"
    "                                   exit status 1 at the limit, 2 when it could\n"
    "                                   not be counted\n"
    "       keshctl offline reset USER  after an online verification: start the\n"
    "                                   limits anew\n"
    "\n"
    "USER is the name, an at sign and the domain. What happens is told in the log.\n";

// Arguments are shown to every user of the machine, so the token is none.
std::optional<std::string> readToken() {
    std::string line;
    std::getline(std::cin, line);
    return line.empty() ? std::nullopt : std::optional(line);
}

int count(EnrollmentHandler& handler, const std::string& user) {
    switch (handler.countVerification(user)) {
        case CountResult::counted:
            return 0;
        case CountResult::limitReached:
            return 1;
        case CountResult::noOfflineData:
        case CountResult::notWritten:
        case CountResult::offlineMFADisabled:
            break;
    }
    return 2;
}

int run(const Machine&, const Words& words) {
    const std::string action = words.empty() ? "" : words.front();
    const bool onUser = action == "check" || action == "count" || action == "reset";
    if (!(onUser && words.size() == 2) && !(action == "sync" && words.size() == 1))
        return misused(offlineCommand, "see below");
    EnrollmentHandler handler(systemClock());
    if (action == "sync")
        return handler.getEnrollmentData(readToken()) ? 0 : 1;
    if (action == "check")
        return static_cast<int>(handler.preAuth(words[1]));
    if (action == "count")
        return count(handler, words[1]);
    return handler.resetOfflineLimit(words[1]) ? 0 : 1;
}

}  // namespace

// Not for root alone: the store decides who may read and write it.
const Command offlineCommand{.name = "offline",
                             .summary = "fetch, check, count and reset offline records",
                             .usage = usage,
                             .rootOnly = false,
                             .run = run};

}  // namespace quorl::control
