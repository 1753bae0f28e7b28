#include "Accounts.h"

#include "Exemptions.h"

#include <algorithm>
#include <sstream>

namespace quorl::control {
namespace {

std::vector<std::string> fields(const std::string& line, char separator) {
    std::vector<std::string> fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, separator);)
        fields.push_back(field);
    return fields;
}

bool contains(const std::vector<std::string>& list, const std::string& word) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

std::vector<std::string> membersOfSudo(const Machine& machine) {
    for (const std::string& line : linesOf(machine.text("/etc/group")))
        if (const auto entry = fields(line, ':'); entry.size() == 4 && entry[0] == "sudo")
            return fields(entry[3], ',');
    return {};
}

bool asksDirectory(const Machine& machine) {
    for (const std::string& line : linesOf(machine.text("/etc/nsswitch.conf"))) {
        const auto words = wordsOf(line);
        if (!words.empty() && words.front() == "passwd:")
            return std::any_of(words.begin() + 1, words.end(), [](const std::string& source) {
                return source != "files" && source != "systemd" && source != "compat" &&
                       !source.starts_with('[');
            });
    }
    return false;
}

}  // namespace

LocalAccounts localAccounts(const Machine& machine) {
    const std::string passwd = machine.file("/etc/passwd"), shadow = machine.file("/etc/shadow");
    const auto administrators = membersOfSudo(machine);
    constexpr unsigned firstPerson = 1000, nobody = 65534;
    LocalAccounts accounts;
    accounts.onlyLocal = !asksDirectory(machine);
    for (const std::string& line : linesOf(machine.text("/etc/passwd"))) {
        const std::string name = line.substr(0, line.find(':'));
        const auto account = pam::localAccount(name, {passwd.c_str(), shadow.c_str()});
        if (!account || !account->hasHash)
            continue;
        if (account->uid == 0)
            accounts.rootHasPassword = true;
        if (account->uid < firstPerson || account->uid == nobody)
            continue;
        accounts.people.push_back(name);
        if (contains(administrators, name))
            accounts.administrators.push_back(name);
    }
    return accounts;
}

}  // namespace quorl::control
