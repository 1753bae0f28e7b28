#pragma once

#include "Value.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// What discovery reads, each of it below the system root and bounded. A failure gives the reason.
template <class T>
using Found = tl::expected<T, std::string>;

/// Names of what lies in the folder of the directory bindings, in the folder's own order; empty
/// when there is no such folder.
std::vector<std::string> bindingEntries();

/// The binding that a file of the folder describes; members that are absent are nothing.
Found<Value> readBinding(const std::string& entry);
Found<std::optional<std::string>> bindingMachineName(const Value& binding);
Found<std::optional<std::string>> bindingDomain(const Value& binding);

/// The computer's name in that of its account: all but the last character, a "$".
std::string computerName(std::string account);

/// Lines of the Kerberos configuration (7-bit text), and the realm that a line names: nothing on
/// lines without "default_realm".
Found<std::vector<std::string>> kerberosLines();
Found<std::optional<std::string>> kerberosRealm(const std::string& line);

/// Lines that the directory-binding tool prints about this machine. Starts it, and waits for it at
/// most 10 seconds.
Found<std::vector<std::string>> bindingToolLines();

/// The user who logged in last: the login window's preferences, where they exist, else the last
/// session on record. Nothing when neither source exists.
struct LastUser {
    std::optional<std::string> name;
};
Found<std::optional<LastUser>> lastUser();

}  // namespace quorl
