#include "MachineDomain.h"

#include "AtomicFile.h"
#include "Log.h"
#include "MachineSources.h"
#include "SystemPaths.h"

#include <limits.h>
#include <unistd.h>

#include <array>

namespace quorl {
namespace {

// The last word, blanks behind it aside.
std::string lastWord(std::string_view line) {
    line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
    return std::string(line.substr(line.find_last_of(" \t") + 1));
}

bool namesDomain(std::string_view line) {
    return line.starts_with("Active Directory Domain");
}

bool namesComputer(std::string_view line) {
    return line.starts_with("Computer Account");
}

void logException(const std::string& reason) {
    logLine("setEnvironmentalDetails : Exception : {}", reason);
}

// Hands every property list among the entries to the visitor, one after the other.
template <class Visitor>
void visitBindings(const std::vector<std::string>& entries, Visitor visit) {
    logLine(
        "setEnvironmentalDetails : Looking at Library/Preferences/OpenDirectory/Configurations/"
        "Active Directory");
    for (const std::string& entry : entries)
        if (entry.ends_with("plist"))
            visit(readBinding(entry));
}

// Hands the lines of the Kerberos file to the visitor, until one of them is a failure; that, or
// the file's own, is what is returned.
template <class Visitor>
Found<void> visitRealms(Visitor visit) {
    const auto lines = kerberosLines();
    if (!lines)
        return tl::unexpected(lines.error());
    logLine("setEnvironmentalDetails : Looking at /Library/Preferences/edu.mit.Kerberos");
    for (const std::string& line : *lines) {
        const auto realm = kerberosRealm(line);
        if (!realm)
            return tl::unexpected(realm.error());
        if (*realm)
            visit(**realm);
    }
    return {};
}

void takeBinding(const Found<Value>& binding, MachineEnvironment& environment) {
    if (!binding)
        return logException(binding.error());
    const auto machine = bindingMachineName(*binding);
    if (!machine)
        return logException(machine.error());
    environment.machineName = *machine;
    const auto domain = bindingDomain(*binding);
    if (!domain)
        return logException(domain.error());
    environment.domainName = *domain;
    logLine("setEnvironmentalDetails : got the domain name - {}", environment.domainName);
    logLine("setEnvironmentalDetails : got the machine name - {}", environment.machineName);
}

void lookAtKerberos(MachineEnvironment& environment) {
    const auto visited = visitRealms([&](const std::string& realm) {
        environment.domainName = realm;
        logLine("setEnvironmentalDetails : got the domain name {}", realm);
    });
    if (!visited)
        return logException(visited.error());
    environment.machineName = localizedHostName();
    logLine("setEnvironmentalDetails : got the machine name {}", environment.machineName);
}

void lookForLastUser(MachineEnvironment& environment) {
    const auto user = lastUser();
    if (!user)
        return logException(user.error());
    if (!*user)
        return;
    environment.defUser = (*user)->name.value_or("");
    logLine("setEnvironmentalDetails : got the default user name {}", (*user)->name);
}

void lookAtBindingTool(MachineEnvironment& environment) {
    logLine("setEnvironmentalDetails : Looking at /usr/sbin/dsconfigad");
    const auto lines = bindingToolLines();
    if (!lines)
        return logException(lines.error());
    for (const std::string& line : *lines) {
        if (namesDomain(line)) {
            environment.domainName = lastWord(line);
            logLine("setEnvironmentalDetails : got the domain name {}", environment.domainName);
        } else if (namesComputer(line)) {
            environment.machineName = computerName(lastWord(line));
            logLine("setEnvironmentalDetails : got the machine name {}", environment.machineName);
        }
    }
}

using Domain = std::optional<std::string>;

void noteDomain(Domain& domain, Domain found) {
    domain = std::move(found);
    logLine("CommonUtils::getMachineDomainName:: : got the machine domain name - {}", domain);
}

void logDomainException(const std::string& reason) {
    logLine("CommonUtils::getMachineDomainName::exception - {}", reason);
}

void findBoundDomain(const std::vector<std::string>& entries, Domain& domain) {
    visitBindings(entries, [&](const Found<Value>& binding) {
        if (const auto found = binding.and_then(bindingDomain))
            noteDomain(domain, *found);
        else
            logDomainException(found.error());
    });
}

void findRealm(Domain& domain) {
    const auto visited = visitRealms([&](const std::string& realm) { noteDomain(domain, realm); });
    if (!visited)
        logDomainException(visited.error());
}

void findReportedDomain(Domain& domain) {
    logLine("setEnvironmentalDetails : Looking at /usr/sbin/dsconfigad");
    const auto lines = bindingToolLines();
    if (!lines)
        return logDomainException(lines.error());
    for (const std::string& line : *lines)
        if (namesDomain(line))
            noteDomain(domain, lastWord(line));
}

// Values of machine-info are written as a shell would quote them.
std::string unquoted(std::string_view value) {
    const bool quoted = value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                        value.back() == value.front();
    if (!quoted)
        return std::string(value);
    const bool escapes = value.front() == '"';
    value = value.substr(1, value.size() - 2);
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (escapes && value[i] == '\\' && i + 1 < value.size())
            ++i;
        text += value[i];
    }
    return text;
}

}  // namespace

void discoverEnvironment(MachineEnvironment& environment) {
    if (environment.machineName && environment.domainName)
        return;
    logLine("setEnvironmentalDetails : Going to obtain the machine name and domain name...");
    if (const auto entries = bindingEntries(); !entries.empty())
        visitBindings(entries,
                      [&](const Found<Value>& binding) { takeBinding(binding, environment); });
    else
        lookAtKerberos(environment);
    if (environment.defUser.empty())
        lookForLastUser(environment);
    if (!environment.machineName || !environment.domainName)
        lookAtBindingTool(environment);
}

std::optional<std::string> getMachineDomainName() {
    Domain domain;
    if (const auto entries = bindingEntries(); !entries.empty())
        findBoundDomain(entries, domain);
    else
        findRealm(domain);
    findReportedDomain(domain);
    return domain;
}

std::string localizedHostName() {
    constexpr std::string_view key = "PRETTY_HOSTNAME=";
    constexpr std::size_t largestFile = std::size_t{64} << 10;
    const auto content = readFile(systemPaths().systemFile("/etc/machine-info"), largestFile);
    std::string_view rest = content ? asText(*content) : "";
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (line.starts_with(key))
            if (std::string name = unquoted(line.substr(key.size())); !name.empty())
                return name;
    }
    std::array<char, HOST_NAME_MAX + 1> host{};
    gethostname(host.data(), host.size() - 1);
    const std::string name = host.data();
    return name.substr(0, name.find('.'));
}

}  // namespace quorl
