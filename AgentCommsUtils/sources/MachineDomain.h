#pragma once

#include <optional>
#include <string>

namespace quorl {

/// What discovery found out about the machine; absent is not found.
struct MachineEnvironment {
    std::optional<std::string> machineName;
    std::optional<std::string> domainName;
    std::string defUser;
};

/// Fills in what is missing: directory bindings, Kerberos, the computer's name, the last user, the
/// binding tool. Returns at once when both names are set. Every failure is a log line.
void discoverEnvironment(MachineEnvironment& environment);

/// The directory domain, discovered afresh; the binding tool's answer wins over the files.
std::optional<std::string> getMachineDomainName();

/// The computer's name as users see it: the pretty host name, else the host name's first label.
std::string localizedHostName();

}  // namespace quorl
