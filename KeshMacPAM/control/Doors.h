#pragma once

#include "Accounts.h"
#include "Machine.h"
#include "Options.h"

#include <string>
#include <vector>

namespace quorl::control {

/// A way into the machine: a service that PAM lets in, and whether it asks for a second factor.
struct Door {
    enum class State { asked, notAsked, cannotAsk };
    std::string service;
    State state;
    std::string why;
};

/// The module's options as the file sets them, for that service.
pam::Options moduleOptions(const Machine& machine, const std::string& service = "");

/// Every door of the machine with a file of its own in /etc/pam.d. `enabled`: as if our lines stood
/// in common-auth already.
std::vector<Door> doors(const Machine& machine, bool enabled);

/// The display manager that this machine starts, by its service's name; "" without one.
std::string displayManager(const Machine& machine);
/// The agent's program is there.
bool agentInstalled(const Machine& machine);

/// A way in that needs no second factor, in words; "" when there is none.
std::string wayInWithout(const LocalAccounts& accounts, const pam::Options& options);

}  // namespace quorl::control
