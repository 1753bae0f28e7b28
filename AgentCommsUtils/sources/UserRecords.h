#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// A user record of the name service, with the directory node it came from.
struct UserRecord {
    std::string name;
    std::vector<std::string> originalNodeName;
    std::vector<std::string> metaNodeLocation;
};

/// The accounts of that name: the local files' first, then the domain service's. Blocks on the name
/// service; errors give nothing.
std::vector<UserRecord> getUserODRecords(const std::string& userName);

/// The record's domain, or "LOCAL_ACCOUNT".
std::string getDomainFromODRecord(const UserRecord& record);

/// The domain of a user account, "LOCAL_ACCOUNT", or nothing when there is no such user.
std::optional<std::string> getUserDomain(const std::string& userName);

/// The same for records that were found already.
std::optional<std::string> getUserDomain(const std::vector<UserRecord>& records);

}  // namespace quorl
