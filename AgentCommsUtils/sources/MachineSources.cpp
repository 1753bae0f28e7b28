#include "MachineSources.h"

#include "AtomicFile.h"
#include "Handle.h"
#include "ProgramOutput.h"
#include "PropertyList.h"
#include "SystemPaths.h"
#include "Utf8.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <filesystem>

namespace quorl {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view bindingFolder =
    "/Library/Preferences/OpenDirectory/Configurations/Active Directory";
constexpr std::string_view kerberosFile = "/Library/Preferences/edu.mit.Kerberos";
constexpr std::string_view linuxKerberosFile = "/etc/krb5.conf";
constexpr std::string_view loginWindowFile = "/Library/Preferences/com.apple.loginwindow.plist";
constexpr std::string_view sessionsFile = "/var/log/wtmp";
constexpr std::string_view bindingTool = "/usr/sbin/dsconfigad";
constexpr std::size_t largestText = std::size_t{1} << 20;

bool exists(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error);
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (true) {
        const auto end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        if (end == text.npos)
            return lines;
        text.remove_prefix(end + 1);
    }
}

Found<Value> readDictionary(const std::string& path) {
    auto dictionary = readPropertyListFile(path);
    if (!dictionary)
        return tl::unexpected(fmt::format("{}: {}", path, dictionary.error()));
    if (!dictionary->is_object())
        return tl::unexpected(fmt::format("{}: no dictionary", path));
    return dictionary;
}

// Absent is nothing; anything but a text is a failure.
Found<std::optional<std::string>> textUnder(const Value& dictionary, std::string_view key) {
    const Value* value = member(dictionary, key);
    if (!value)
        return std::nullopt;
    if (!value->is_string())
        return tl::unexpected(fmt::format("{} is no text", key));
    return value->get<std::string>();
}

// Installed and in the build tree, the tool that ships with us lies beside the executable.
std::string bindingToolPath() {
    std::string named = systemPaths().systemFile(bindingTool);
    if (exists(named))
        return named;
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).replace_filename("dsconfigad").string();
}

bool isUserName(std::string_view name) {
    const bool control = std::any_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
    });
    return !name.empty() && !control && isPlainText(name);
}

// From the newest record backwards, through the file's last part only: it grows without bound.
Found<std::optional<LastUser>> lastSessionUser(const std::string& path) {
    constexpr off_t mostRecords = 2048;
    constexpr off_t recordSize = sizeof(utmp);
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat state {};
    if (!file || fstat(file.get(), &state) != 0)
        return tl::unexpected(fmt::format("{}: {}", path, strerror(errno)));
    if (!S_ISREG(state.st_mode))
        return tl::unexpected(fmt::format("{}: not a regular file", path));
    const off_t records = state.st_size / recordSize;
    for (off_t i = records - 1; i >= std::max<off_t>(0, records - mostRecords); --i) {
        utmp session{};
        if (pread(file.get(), &session, sizeof session, i * recordSize) != recordSize)
            return tl::unexpected(fmt::format("{}: cannot be read", path));
        const std::string name(session.ut_user, strnlen(session.ut_user, sizeof session.ut_user));
        if (session.ut_type == USER_PROCESS && isUserName(name))
            return LastUser{name};
    }
    return std::nullopt;
}

}  // namespace

std::vector<std::string> bindingEntries() {
    std::vector<std::string> entries;
    std::error_code error;
    for (fs::directory_iterator entry(systemPaths().systemFile(bindingFolder), error), end;
         !error && entry != end; entry.increment(error))
        entries.push_back(entry->path().filename().string());
    return entries;
}

Found<Value> readBinding(const std::string& entry) {
    return readDictionary(systemPaths().systemFile(bindingFolder) + "/" + entry);
}

Found<std::optional<std::string>> bindingMachineName(const Value& binding) {
    auto account = textUnder(binding, "trustaccount");
    if (!account || !*account)
        return account;
    if ((*account)->empty())
        return tl::unexpected(std::string("trustaccount is empty"));
    return computerName(**account);
}

std::string computerName(std::string account) {
    // A character of UTF-8 text begins where no continuation byte stands.
    while (!account.empty() && (account.back() & 0xc0) == 0x80)
        account.pop_back();
    if (!account.empty())
        account.pop_back();
    return account;
}

Found<std::optional<std::string>> bindingDomain(const Value& binding) {
    const Value* module = &binding;
    for (const std::string_view key : {"module options", "ActiveDirectory"}) {
        module = member(*module, key);
        if (!module)
            return std::nullopt;
        if (!module->is_object())
            return tl::unexpected(fmt::format("{} is no dictionary", key));
    }
    return textUnder(*module, "domain");
}

Found<std::vector<std::string>> kerberosLines() {
    std::string path = systemPaths().systemFile(kerberosFile);
    if (!exists(path))
        path = systemPaths().systemFile(linuxKerberosFile);
    const auto content = readFile(path, largestText);
    if (!content)
        return tl::unexpected(fmt::format("{}: {}", path, content.error()));
    if (std::any_of(content->begin(), content->end(),
                    [](std::uint8_t byte) { return byte > 0x7f; }))
        return tl::unexpected(fmt::format("{}: not 7-bit text", path));
    return linesOf(asText(*content));
}

Found<std::optional<std::string>> kerberosRealm(const std::string& line) {
    constexpr std::string_view assignment = "default_realm = ";
    if (line.find("default_realm") == line.npos)
        return std::nullopt;
    const auto at = line.find(assignment);
    if (at == line.npos)
        return tl::unexpected("no realm in the line: " + line);
    return line.substr(at + assignment.size());
}

Found<std::vector<std::string>> bindingToolLines() {
    const auto output = readProgramOutput({
        .path = bindingToolPath(),
        .arguments = {"-show"},
        .environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C",
                        "QUORL_SYSTEM_ROOT=" + systemPaths().systemRoot},
    });
    if (!output)
        return tl::unexpected(output.error());
    if (!isPlainText(*output))
        return tl::unexpected(std::string("the tool's output is no text"));
    return linesOf(*output);
}

Found<std::optional<LastUser>> lastUser() {
    const std::string preferences = systemPaths().systemFile(loginWindowFile);
    if (exists(preferences)) {
        const auto dictionary = readDictionary(preferences);
        if (!dictionary)
            return tl::unexpected(dictionary.error());
        return textUnder(*dictionary, "lastUserName").map([](auto name) {
            return std::optional(LastUser{name});
        });
    }
    const std::string sessions = systemPaths().systemFile(sessionsFile);
    if (exists(sessions))
        return lastSessionUser(sessions);
    return std::nullopt;
}

}  // namespace quorl
