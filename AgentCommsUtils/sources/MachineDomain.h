#pragma once

#include <optional>
#include <string>
#include <vector>

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

/// The computer's name as users see it.
std::string localizedHostName();

/// A user record of the name service, with the directory node it came from.
struct UserRecord {
    std::string name;
    std::vector<std::string> originalNodeName;
    std::vector<std::string> metaNodeLocation;
};
std::vector<UserRecord> getUserODRecords(const std::string& userName);

/// The record's domain, or "LOCAL_ACCOUNT".
std::string getDomainFromODRecord(const UserRecord& record);

/// The domain of a user account, "LOCAL_ACCOUNT", or nothing when there is no such user.
std::optional<std::string> getUserDomain(const std::string& userName);

}  // namespace quorl
