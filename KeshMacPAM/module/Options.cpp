#include "Options.h"

#include "LineReader.h"
#include "Paths.h"
#include "TextParts.h"

#include <sys/stat.h>

#include <cerrno>

namespace quorl::pam {
namespace {

using verifier::KeyRule;
using verifier::Mode;

bool allPrintable(std::string_view text) {
    for (const char c : text)
        if (c < 0x20 || c > 0x7e)
            return false;
    return true;
}

template <class T>
struct Word {
    std::string_view text;
    T value;
};

template <class T, std::size_t N, class Target>
bool choose(const Word<T> (&words)[N], std::string_view text, Target& target) {
    for (const Word<T>& word : words)
        if (word.text == text) {
            target = word.value;
            return true;
        }
    return false;
}

constexpr Word<Asked> askedWords[] = {{"exempt", Asked::Exempt}, {"require", Asked::Require}};
constexpr Word<Mode> modeWords[] = {
    {"auto", Mode::Auto}, {"window", Mode::Window}, {"text", Mode::Text}};
constexpr Word<KeyRule> keyWords[] = {{"present", KeyRule::Present}, {"signed", KeyRule::Signed}};
constexpr Word<bool> truthWords[] = {
    {"yes", true}, {"no", false}, {"true", true}, {"false", false}};

bool sameDoor(std::string_view named, std::string_view service) {
    return named == service || (named == "sudo" && service == "sudo-i") ||
           (named == "su" && service == "su-l");
}

bool setTimeout(std::string_view value, Options& options) {
    constexpr long long shortest = 10, longest = 3600;
    const long long seconds = wholeNumber(value);
    if (seconds < shortest || seconds > longest)
        return false;
    options.timeout = std::chrono::seconds(seconds);
    return true;
}

bool set(std::string_view name, std::string_view value, std::string_view service,
         Options& options) {
    constexpr std::string_view modeOf = "mode.";
    if (!allPrintable(value))
        return false;
    if (name == "services")
        return options.services.assign(value);
    if (name == "root")
        return choose(askedWords, value, options.root);
    if (name == "local")
        return choose(askedWords, value, options.local);
    if (name == "mode")
        return choose(modeWords, value, options.mode);
    if (startsWith(name, modeOf)) {
        name.remove_prefix(modeOf.size());
        std::optional<Mode> elsewhere;
        return choose(modeWords, value, sameDoor(name, service) ? options.serviceMode : elsewhere);
    }
    if (name == "timeout")
        return setTimeout(value, options);
    if (name == "page")
        return startsWith(value, "/") && options.page.assign(value);
    if (name == "key")
        return choose(keyWords, value, options.key);
    if (name == "echo")
        return choose(truthWords, value, options.echo);
    if (name == "debug")
        return choose(truthWords, value.empty() ? "yes" : value, options.debug);
    return false;
}

}  // namespace

void applySetting(std::string_view setting, std::string_view service, Options& options) {
    const std::string_view name = trimmed(cutField(setting, '='));
    if (set(name, trimmed(setting), service, options))
        return;
    if (!options.ignored.empty())
        options.ignored.append(" ");
    options.ignored.append(allPrintable(name) ? name : "(unreadable)");
}

OptionsFile readOptionsFile(const char* path, std::string_view service, Options& options) {
    Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW));
    if (!file)
        return errno == ENOENT ? OptionsFile::Absent : OptionsFile::Refused;
    struct stat status;
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != rulingUid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return OptionsFile::Refused;
    LineReader lines(std::move(file));
    std::string_view line;
    while (lines.next(line)) {
        line = trimmed(line);
        if (!line.empty() && line.front() != '#')
            applySetting(line, service, options);
    }
    return OptionsFile::Read;
}

bool listed(std::string_view services, std::string_view service) {
    while (!services.empty())
        if (const std::string_view named = trimmed(cutField(services, ' '));
            !named.empty() && sameDoor(named, service))
            return true;
    return false;
}

}  // namespace quorl::pam
