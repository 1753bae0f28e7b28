#include "Person.h"

#include "AsciiCase.h"
#include "UserRecords.h"

#include <pwd.h>

namespace quorl {
namespace {

std::string firstLabel(const std::string& domain) {
    return domain.substr(0, domain.find('.'));
}

bool sameDomain(const std::string& given, const std::string& stored) {
    const std::string one = lowerCase(given), other = lowerCase(stored);
    return one == other || one == firstLabel(other) || firstLabel(one) == other;
}

}  // namespace

LoginName splitLoginName(const std::string& login) {
    if (const auto slash = login.find('\\'); slash != std::string::npos)
        return {login.substr(slash + 1), login.substr(0, slash)};
    if (const auto at = login.rfind('@'); at != std::string::npos)
        return {login.substr(0, at), login.substr(at + 1)};
    return {login, ""};
}

std::optional<LoginName> matchingRecord(const LoginName& login,
                                        const std::vector<std::string>& records) {
    std::optional<LoginName> found;
    for (const std::string& record : records) {
        const LoginName stored = splitLoginName(record);
        if (stored.name == login.name && stored.domain == login.domain)
            return stored;
        if (lowerCase(stored.name) != lowerCase(login.name) ||
            (!login.domain.empty() && !sameDomain(login.domain, stored.domain)))
            continue;
        if (found)
            return std::nullopt;
        found = stored;
    }
    return found;
}

std::optional<Person> findPerson(const std::string& login,
                                 const std::vector<std::string>& records) {
    std::vector<char> buffer(65'536);
    passwd entry{};
    passwd* account = nullptr;
    getpwnam_r(login.c_str(), &entry, buffer.data(), buffer.size(), &account);
    if (!account)
        return std::nullopt;
    LoginName name = splitLoginName(login);
    if (const auto record = matchingRecord(name, records))
        return Person{account->pw_uid, record->name, record->domain};
    // Only then, since it may run a program.
    if (const auto domain = getUserDomain(login); domain && !domain->empty())
        name.domain = *domain;
    return Person{account->pw_uid, name.name, name.domain};
}

}  // namespace quorl
