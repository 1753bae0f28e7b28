#pragma once

#include "Command.h"

#include <string>

namespace quorl::control {

/// Parts of keshctl that run in processes of their own (Machine::worker): a server that is silent,
/// a module that crashes or a look with another support folder then costs that process alone.
/// Their words are no interface of anybody's.

/// Registers with the server that the configuration in this process's support folder names, or
/// has a registration looked at that is there. Prints "ok ID", or what failed as one sentence.
int registerWorker();
/// Reports "uninstall".
int reportRemovalWorker();

/// Looks at the server in all the ways that the doctor wants to know of; prints an object.
/// "addresses" or "why" not, "proxy", "connected" 1 or "why" not, "certificate": what is wrong with
/// it, or "unseen": why that cannot be told, "ahead": seconds that this machine's clock is ahead of
/// the server's, "signed": the status of a signed call.
int serverWorker();

/// The agent's account: "exists" 1, "readers": the group that reads what root keeps, where the
/// support folder is shared with one.
int accountWorker();

/// What is known of a person: "record" (its name), "stored" 1, "local" 1, "standing", "factors",
/// "methods", "limit" in words, "synced", "lockedFor" seconds or "guardFault".
int userWorker(const std::string& login);

/// Loads a PAM module and looks for what PAM calls. Prints "ok" or why not.
int moduleWorker(const std::string& path);

/// Prints the end of the agent's own log, which nobody but its account is to open.
int agentLogWorker();

/// The worker of that name.
int runWorker(const Words& words);

}  // namespace quorl::control
