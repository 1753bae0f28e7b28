#pragma once

#include "ConfigParser.h"
#include "Machine.h"
#include "Value.h"

#include <future>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quorl::control {

/// How a check ended. A note is worth knowing and hinders nobody.
enum class Mark { ok, note, broken, skipped, needsRoot };

struct Finding {
    Mark mark;
    std::string text;
    std::string fix = "";  ///< what mends it: a command, or what to change where
};
Finding ok(std::string text);
Finding note(std::string text, std::string fix = "");
Finding broken(std::string text, std::string fix);
Finding skipped(std::string text);
Finding needsRoot();

/// What the checks look at. Each look may take its time, but ends by itself: whatever can hang runs
/// in a process with a time limit. The checks run side by side; the name service, which can hang
/// and is not sure to bear that, is asked in workers.
struct Examination {
    const Machine& machine;
    StoredConfig config;
    bool configReadable;
    bool asRoot;
    std::optional<std::string> user;
    std::shared_future<Value> account;   ///< the agent's account, see accountWorker()
    std::shared_future<Value> server;    ///< what a look at the server gave, see serverWorker()
    std::shared_future<Value> personal;  ///< what is known of the user, see userWorker()
};

struct Check {
    std::string_view name;
    Finding (*look)(const Examination& examination);
};
/// All checks in their order; each one's number is its place, from 1.
std::span<const Check> checks();

// The checks by what they look at.
Finding checkProfile(const Examination& examination);
Finding checkDoors(const Examination& examination);
Finding checkModule(const Examination& examination);
Finding checkHelper(const Examination& examination);
Finding checkConfiguration(const Examination& examination);
Finding checkSwitchedOn(const Examination& examination);
Finding checkWayIn(const Examination& examination);
Finding checkName(const Examination& examination);
Finding checkPort(const Examination& examination);
Finding checkCertificate(const Examination& examination);
Finding checkClock(const Examination& examination);
Finding checkRegistration(const Examination& examination);
Finding checkSignature(const Examination& examination);
Finding checkAgent(const Examination& examination);
Finding checkLoginManager(const Examination& examination);
Finding checkAutologin(const Examination& examination);
Finding checkSshd(const Examination& examination);
Finding checkSupportFolder(const Examination& examination);
Finding checkSpelling(const Examination& examination);
Finding checkRecord(const Examination& examination);

}  // namespace quorl::control
