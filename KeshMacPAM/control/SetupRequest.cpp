#include "SetupRequest.h"

#include "AtomicFile.h"
#include "ConfigParser.h"
#include "HexKey.h"
#include "Wipe.h"

#include <array>
#include <cstdio>

namespace quorl::control {
namespace {

using Done = tl::expected<void, std::string>;

// Arguments are shown to every user of the machine, so keys are none.
tl::expected<std::string, std::string> readKey(const std::string& path) {
    constexpr std::size_t largestKey = 4096;
    // Standard input can be a pipe, which has no size.
    if (path == "-") {
        std::string text;
        std::array<char, largestKey> part{};
        for (std::size_t count;
             text.size() < largestKey && (count = fread(part.data(), 1, part.size(), stdin)) > 0;)
            text.append(part.data(), count);
        std::string key = trimmed(text);
        wipe(text);
        if (key.empty())
            return tl::unexpected<std::string>("standard input holds no key");
        return key;
    }
    auto content = readFile(path, largestKey);
    if (!content)
        return tl::unexpected(shown(path) + " cannot be read: " + content.error());
    const WipeAtExit wiped(*content);
    std::string key = trimmed(asText(*content));
    if (key.empty())
        return tl::unexpected(shown(path) + " holds no key");
    return key;
}

Done readKeys(const Arguments& arguments, SetupRequest& request) {
    for (const auto& [option, key] :
         {std::pair{"--installation-key-file", &request.installationKey},
          std::pair{"--value-key-file", &request.valueKey}})
        if (const auto path = arguments.value(option)) {
            auto read = readKey(*path);
            if (!read)
                return tl::unexpected(read.error());
            *key = std::move(*read);
        }
    if (request.valueKey && !keyFromHex(*request.valueKey))
        return tl::unexpected<std::string>("a value key is 64 hexadecimal digits");
    return {};
}

Done readSettings(const Arguments& arguments, SetupRequest& request) {
    for (const std::string& setting : arguments.values("--set")) {
        const std::size_t equals = setting.find('=');
        const std::string name = setting.substr(0, equals);
        const bool own = name == "AGENT_ID" || name.ends_with("_KEY");
        if (equals == setting.npos || own || !isSetting(name))
            return tl::unexpected(shown(name) + " is no setting for --set");
        request.settings[name] = setting.substr(equals + 1);
    }
    for (const auto& [option, name] :
         {std::pair{"--server", "SERVERNAME"}, std::pair{"--port", "PORTNUMBER"},
          std::pair{"--context", "CONTEXT_PATH"}})
        if (const auto value = arguments.value(option))
            request.settings[name] = *value;
    return {};
}

}  // namespace

SetupRequest::~SetupRequest() {
    for (auto* key : {&installationKey, &valueKey})
        if (*key)
            wipe(**key);
}

tl::expected<void, std::string> SetupRequest::read(const Arguments& arguments) {
    renew = arguments.has("--renew");
    if (auto done = readSettings(arguments, *this); !done)
        return done;
    return readKeys(arguments, *this);
}

}  // namespace quorl::control
