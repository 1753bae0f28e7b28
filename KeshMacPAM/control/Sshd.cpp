#include "Sshd.h"

#include "AsciiCase.h"

namespace quorl::control {
namespace {

using Settings = std::map<std::string, std::string>;

// Of each setting the first counts.
void read(const std::string& text, Settings& settings) {
    for (const std::string& line : linesOf(text)) {
        const auto words = wordsOf(line.substr(0, line.find('#')));
        if (words.size() < 2)
            continue;
        // What follows holds for some only.
        if (lowerCase(words[0]) == "match")
            return;
        settings.try_emplace(lowerCase(words[0]), lowerCase(words[1]));
    }
}

Settings fromFiles(const Machine& machine) {
    Settings settings;
    for (const std::string& name : machine.names("/etc/ssh/sshd_config.d"))
        if (name.ends_with(".conf"))
            read(machine.text("/etc/ssh/sshd_config.d/" + name), settings);
    read(machine.text("/etc/ssh/sshd_config"), settings);
    return settings;
}

bool is(const Settings& settings, const std::string& name, const std::string& value,
        bool otherwise) {
    const auto found = settings.find(name);
    return found == settings.end() ? otherwise : found->second == value;
}

}  // namespace

std::optional<SshdSettings> sshdSettings(const Machine& machine) {
    if (machine.program("sshd").empty())
        return std::nullopt;
    Settings settings;
    if (const auto said = machine.run("sshd", {"-T"}))
        read(*said, settings);
    if (settings.empty())
        settings = fromFiles(machine);
    return SshdSettings{.usesPam = is(settings, "usepam", "yes", false),
                        .canPrompt = is(settings, "kbdinteractiveauthentication", "yes", true),
                        .takesPasswords = is(settings, "passwordauthentication", "yes", true),
                        .takesKeysAlone = is(settings, "pubkeyauthentication", "yes", true) &&
                                          is(settings, "authenticationmethods", "any", true)};
}

}  // namespace quorl::control
