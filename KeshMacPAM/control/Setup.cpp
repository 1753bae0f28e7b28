#include "AtomicFile.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "HexKey.h"
#include "PropertyList.h"
#include "ServerAddress.h"
#include "SetupRequest.h"
#include "StagedConfiguration.h"
#include "SystemPaths.h"
#include "ValueKey.h"
#include "WaitingLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/rand.h>
#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>

namespace quorl::control {
namespace {

constexpr std::string_view usage =
    "usage: keshctl setup --server HOST --port N [--context PATH]\n"
    "                     --installation-key-file FILE|- [--set NAME=VALUE]...\n"
    "                     [--value-key-file FILE|-] [--renew]\n"
    "       keshctl setup --make-value-key\n"
    "       keshctl setup --report-removal\n"
    "\n"
    "Registers this machine with the self-service server and writes the\n"
    "configuration. Until the server has accepted the machine, the configuration\n"
    "in use stays as it is. Run again, it changes what differs.\n"
    "\n"
    "  --server HOST, --port N, --context PATH\n"
    "                where the server is; what is not given stays\n"
    "  --installation-key-file FILE|-\n"
    "                holds the one-time key of the registration; - is standard\n"
    "                input. Not needed by a machine that is registered\n"
    "  --set NAME=VALUE\n"
    "                another setting of quorl-agent-config(5), e.g. LOGIN_MFA=true\n"
    "  --value-key-file FILE|-\n"
    "                holds the organisation's value key, 64 hexadecimal digits\n"
    "  --make-value-key\n"
    "                makes a value key, which the server must then be given\n"
    "  --renew       a new identity and access key, by a new installation key\n"
    "  --report-removal\n"
    "                tells the server that the machine leaves it; 10 s at most\n"
    "\n"
    "Exit status: 0 done, 1 failed and nothing changed, 2 refused, 64 misused,\n"
    "77 not root.\n";

// What the machine is set up for where nothing else is asked for: that it asks.
constexpr std::array<std::pair<const char*, const char*>, 3> freshSettings = {
    {{"LOGIN_MFA", "true"}, {"PREAUTH_CHECK_REQUIRED", "true"}, {"OFFLINE_MFA", "true"}}};

using Done = tl::expected<void, std::string>;

Done makeSupportFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(folder).parent_path(), error);
    if (mkdir(folder.c_str(), 0700) != 0)
        return std::filesystem::is_directory(folder, error)
                   ? Done()
                   : tl::unexpected(folder + " cannot be made");
    if (const passwd* account = getpwnam(systemPaths().agentAccount.c_str()))
        if (chown(folder.c_str(), 0, account->pw_gid) != 0 || chmod(folder.c_str(), 0750) != 0)
            return tl::unexpected(folder + " cannot be shared with the agent's account");
    return {};
}

// The settings as they are stored: keys encrypted.
tl::expected<Value, std::string> storedSettings(const std::string& path, bool renew) {
    std::error_code error;
    if (!std::filesystem::exists(path, error) && !error) {
        Value fresh = Value::object();
        for (const auto& [name, value] : freshSettings)
            fresh[name] = value;
        return fresh;
    }
    auto stored = readPropertyListFile(path);
    if (stored && stored->is_object())
        return *stored;
    if (!renew)
        return tl::unexpected(path +
                              " is damaged; bring it back from a backup, or run setup with "
                              "--renew and a new installation key, which begins it anew");
    std::filesystem::rename(path, path + ".damaged", error);
    if (error)
        return tl::unexpected(path + " is damaged and cannot be put aside");
    return storedSettings(path, renew);
}

// The value key in use changes what every stored key says, so the identity goes with it.
Done checkValueKey(const SetupRequest& request, bool registered) {
    if (!request.valueKey)
        return {};
    auto present = valueKey();
    const bool same = present && present == keyFromHex(*request.valueKey);
    if (present)
        wipe(*present);
    if (!same && registered && !request.renew)
        return tl::unexpected<std::string>(
            "another value key makes this machine's identity unreadable; add --renew and a new "
            "installation key");
    return {};
}

tl::expected<std::string, std::string> encrypted(const SetupRequest& request) {
    auto key = request.valueKey ? keyFromHex(*request.valueKey) : valueKey();
    if (!key)
        return tl::unexpected<std::string>(
            "the value key cannot be read; mend value.key in the support folder");
    const WipeAtExit wiped(*key);
    const auto text = encryptText(*request.installationKey, *key, iv);
    if (!text)
        return tl::unexpected<std::string>("the installation key is no text");
    return *text;
}

// Which settings the machine is to have, the installation key included where one is needed.
Done complete(Value& settings, const SetupRequest& request) {
    const bool registered =
        !configText(settings, "AGENT_ID").empty() && !configText(settings, "ACCESS_KEY").empty();
    if (auto done = checkValueKey(request, registered); !done)
        return done;
    for (const auto& [name, value] : request.settings)
        settings[name] = value;
    settings["VERSION"] = QUORL_VERSION;
    if (!serverAddress(settings))
        return tl::unexpected<std::string>(
            "--server must be a host name or address, --port a number from 1 to 65535, and "
            "--context a path that begins with a slash");
    if (registered && !request.renew)
        return {};
    if (!request.installationKey)
        return tl::unexpected<std::string>(
            "the registration needs an installation key; get one from the server and give it by "
            "--installation-key-file");
    for (const char* name : {"AGENT_ID", "ACCESS_KEY"})
        settings.erase(name);
    auto key = encrypted(request);
    if (!key)
        return tl::unexpected(key.error());
    settings["INSTALLATION_KEY"] = *key;
    return {};
}

int setUp(const SetupRequest& request) {
    const std::string support = systemPaths().supportDirectory();
    if (auto done = makeSupportFolder(support); !done)
        return failed(done.error());
    const auto lock = WaitingLock::take(support + "/setup.lock", std::chrono::seconds(5));
    if (!lock)
        return failed("another setup is running; wait for its end", exitRefused);
    const std::string path = support + "/config.plist";
    auto settings = storedSettings(path, request.renew);
    if (!settings)
        return failed(settings.error());
    const bool wasRegistered = !configText(*settings, "AGENT_ID").empty();
    if (auto done = complete(*settings, request); !done)
        return failed(done.error(), exitRefused);
    const StagedConfiguration::Done prepared = [&] {
        StagedConfiguration staged(support);
        // The installation key may have been spent on it.
        if (!configText(*settings, "INSTALLATION_KEY").empty() &&
            staged.holdsNewIdentityFor(*settings))
            return StagedConfiguration::Done();
        auto key = request.valueKey;
        if (std::error_code error; !key && std::filesystem::exists(support + "/value.key", error))
            key = trimmed(Machine("").text(support + "/value.key"));
        return staged.prepare(*settings, key);
    }();
    if (!prepared)
        return failed(prepared.error());
    const StagedConfiguration staged(support);
    say(fmt::format("Asking {}:{} ...", configText(*settings, "SERVERNAME"),
                    configText(*settings, "PORTNUMBER")));
    fflush(stdout);
    const auto identifier = staged.tryOut();
    if (!identifier) {
        if (!staged.holdsNewIdentityFor(*settings))
            staged.discard();
        return failed(identifier.error() + ". Nothing was changed.");
    }
    if (auto done = staged.takeEffect(); !done)
        return failed(done.error() + "; make room or mend it and run setup again");
    const bool anew = request.renew || !wasRegistered;
    tell(fmt::format("{} as agent {}. Next: {}.",
                     anew ? "This machine is registered" : "The server accepts this machine",
                     shown(*identifier),
                     request.renew ? "everybody signs in once with the server, for a new record"
                                   : "keshctl enable, then keshctl doctor"));
    return exitDone;
}

int makeValueKey() {
    const std::string support = systemPaths().supportDirectory();
    if (auto done = makeSupportFolder(support); !done)
        return failed(done.error());
    const std::string path = support + "/value.key";
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(path, error)))
        return failed(path + " is there already; it stays as it is", exitRefused);
    if (!configText(readConfig(support + "/config.plist").settings, "AGENT_ID").empty())
        return failed(
            "this machine is registered under the present value key; bring the new one "
            "with --value-key-file and --renew",
            exitRefused);
    AesKey key{};
    const WipeAtExit wiped(key);
    if (RAND_bytes(key.data(), static_cast<int>(key.size())) != 1)
        return failed("no random numbers are to be had");
    std::string text;
    for (const std::uint8_t byte : key)
        text += fmt::format("{:02x}", byte);
    const auto written = putIntoSupport(path, text + "\n");
    wipe(text);
    if (!written)
        return failed(written.error());
    tell(path +
         " holds a new value key. Next: give it to the server, on a safe way, then run keshctl "
         "setup --server ... on this machine.");
    return exitDone;
}

int reportRemoval() {
    const auto said = Machine::worker({"report-removal"}, std::chrono::milliseconds(9500));
    const std::string line = said ? trimmed(*said) : "the server does not answer";
    if (line != "ok")
        return failed(line.empty() ? "the report broke off" : line);
    say("The server knows that this machine has left.");
    return exitDone;
}

int run(const Machine&, const Words& words) {
    const auto arguments =
        Arguments::sort(words, {.valued = {"--server", "--port", "--context",
                                           "--installation-key-file", "--set", "--value-key-file"},
                                .flags = {"--make-value-key", "--renew", "--report-removal"}});
    if (!arguments)
        return misused(setupCommand, arguments.error());
    if (!arguments->plain().empty() || words.empty())
        return misused(setupCommand, "see below");
    if (arguments->has("--make-value-key") || arguments->has("--report-removal")) {
        if (words.size() != 1)
            return misused(setupCommand, words.front() + " goes by itself");
        return arguments->has("--make-value-key") ? makeValueKey() : reportRemoval();
    }
    if (arguments->value("--installation-key-file") == "-" &&
        arguments->value("--value-key-file") == "-")
        return misused(setupCommand, "only one key can come from standard input");
    SetupRequest request;
    if (auto done = request.read(*arguments); !done)
        return failed(done.error());
    return setUp(request);
}

}  // namespace

const Command setupCommand{.name = "setup",
                           .summary = "register this machine with the server",
                           .usage = usage,
                           .rootOnly = true,
                           .run = run};

}  // namespace quorl::control
