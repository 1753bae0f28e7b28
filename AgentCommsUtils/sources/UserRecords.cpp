#include "UserRecords.h"

#include "AsciiCase.h"
#include "Handle.h"
#include "Log.h"
#include "MachineDomain.h"
#include "SystemPaths.h"

#include <pwd.h>
#include <stdio.h>

#include <array>

namespace quorl {
namespace {

constexpr std::string_view localNode = "/Local/Default";
constexpr std::string_view localAccount = "LOCAL_ACCOUNT";
constexpr std::size_t largestEntry = std::size_t{64} << 10;

using PasswordFile = Handle<FILE, fclose>;

bool isInLocalFiles(const std::string& userName) {
    const PasswordFile file(fopen(systemPaths().systemFile("/etc/passwd").c_str(), "re"));
    std::vector<char> buffer(largestEntry);
    passwd entry{};
    passwd* found = nullptr;
    while (file && fgetpwent_r(file.get(), &entry, buffer.data(), buffer.size(), &found) == 0)
        if (userName == entry.pw_name)
            return true;
    return false;
}

bool isKnown(const std::string& userName) {
    std::vector<char> buffer(largestEntry);
    passwd entry{};
    passwd* found = nullptr;
    return getpwnam_r(userName.c_str(), &entry, buffer.data(), buffer.size(), &found) == 0 && found;
}

std::string domainNode(const std::string& domain) {
    return "/Active Directory/" + upperCase(domain.substr(0, domain.find('.'))) + "/" + domain;
}

Value asValue(const std::vector<std::string>& texts) {
    Value list = Value::array();
    for (const std::string& text : texts)
        list.push_back(text);
    return list;
}

}  // namespace

std::vector<UserRecord> getUserODRecords(const std::string& userName) {
    logLine("pam_kesh: getUserODRecords called");
    std::vector<UserRecord> records;
    const auto add = [&](std::string node) { records.push_back({userName, {node}, {node}}); };
    const bool local = isInLocalFiles(userName);
    if (local)
        add(std::string(localNode));
    const auto domain = getMachineDomainName();
    if (domain && !domain->empty()) {
        // A local account hides the domain's of the same name; its full name does not.
        if ((!local && isKnown(userName)) || isKnown(userName + "@" + *domain))
            add(domainNode(*domain));
    } else if (!local && isKnown(userName)) {
        // Without a domain, whatever the name service knows is the machine's own.
        add(std::string(localNode));
    }
    return records;
}

std::string getDomainFromODRecord(const UserRecord& record) {
    const std::vector<std::string>* nodes = &record.originalNodeName;
    logLine("pam_kesh: attributes for object- {}", asValue(*nodes));
    if (nodes->empty() || nodes->front().find("/Active Directory") == std::string::npos)
        nodes = &record.metaNodeLocation;
    const auto location = nodes->empty() ? std::nullopt : std::optional(nodes->front());
    logLine("pam_kesh: getDomainFromODRecord - nodeLocation - {}", location);
    if (!location)
        return "";
    if (*location == localNode)
        return std::string(localAccount);
    return location->substr(location->rfind('/') + 1);
}

std::optional<std::string> getUserDomain(const std::string& userName) {
    return getUserDomain(getUserODRecords(userName));
}

std::optional<std::string> getUserDomain(const std::vector<UserRecord>& records) {
    if (records.empty()) {
        logLine("pam_kesh: getUserDomain - {}", std::nullopt);
        return std::nullopt;
    }
    if (records.size() == 1) {
        const std::string domain = getDomainFromODRecord(records.front());
        logLine("pam_kesh: getUserDomain - {}", domain);
        return domain;
    }
    logLine("pam_kesh: UserODRecord's Count - {}", records.size());
    const auto machineDomain = getMachineDomainName();
    logLine("pam_kesh: MachineDomainName - {}", machineDomain);
    for (const UserRecord& record : records) {
        const std::string domain = getDomainFromODRecord(record);
        logLine("pam_kesh: CurrentDomain - {}", domain);
        // The machine's own domain is compared as it stands: written with capitals, it matches
        // none.
        if (domain == localAccount || lowerCase(domain) == machineDomain) {
            logLine("pam_kesh: getUserDomain - {}", domain);
            return domain;
        }
    }
    return getDomainFromODRecord(records.front());
}

}  // namespace quorl
