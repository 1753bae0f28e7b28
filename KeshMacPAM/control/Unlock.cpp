#include "AttemptGuard.h"
#include "Command.h"
#include "SystemPaths.h"

#include <fmt/format.h>
#include <pwd.h>

namespace quorl::control {
namespace {

constexpr std::string_view usage =
    "usage: keshctl unlock USER\n"
    "\n"
    "Ends the lock that wrong codes have put on USER's offline codes, and forgets the\n"
    "wrong codes. Codes that were used stay used. Noted in the journal.\n"
    "\n"
    "Exit status: 0 done, 1 failed, 64 misused, 77 not root.\n";

int run(const Machine&, const Words& words) {
    if (words.size() != 1 || words.front().starts_with("-"))
        return misused(unlockCommand, "see below");
    const passwd* account = getpwnam(words.front().c_str());
    if (!account)
        return failed("there is no account " + shown(words.front()) +
                      "; spell it as at the login (`getent passwd NAME` shows it)");
    AttemptGuard guard(systemPaths().guardDir, account->pw_uid, systemClock());
    std::chrono::seconds was{0};
    const auto now = guard.change([&](GuardState& state, GuardState::Time time) {
        was = state.lockedFor(time);
        state.noteSuccess();
    });
    if (!now)
        return failed("not unlocked: " + now.error());
    noteInJournal("unlocked the codes of " + words.front());
    say(was.count() > 0
            ? fmt::format("{} is unlocked, {} s early.", shown(words.front()), was.count())
            : shown(words.front()) + " was not locked; wrong codes are forgotten.");
    return exitDone;
}

}  // namespace

const Command unlockCommand{.name = "unlock",
                            .summary = "end the lock that wrong codes put on a user",
                            .usage = usage,
                            .rootOnly = true,
                            .run = run};

}  // namespace quorl::control
