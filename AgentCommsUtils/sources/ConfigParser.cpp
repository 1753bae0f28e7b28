#include "ConfigParser.h"

#include "AsciiCase.h"
#include "AtomicFile.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "PropertyList.h"
#include "SystemPaths.h"
#include "ValueKey.h"
#include "WaitingLock.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

namespace quorl {
namespace {

using Setting = std::pair<std::string_view, std::string_view>;

constexpr std::array<Setting, 22> defaults = {{
    {"SERVERNAME", ""},
    {"PORTNUMBER", ""},
    {"CONTEXT_PATH", ""},
    {"LOGIN_MFA", "false"},
    {"PREAUTH_CHECK_REQUIRED", "false"},
    {"BYPASS_MFA_SERVERUNREACH", "false"},
    {"RESTRICT_BADCERT", "true"},
    {"SERVER_UNREACH_MSG",
     "Could not connect to the TFA Provider. Please contact the administrator."},
    {"PRODTITLE", ""},
    {"IMAGEPATH", "reset_icon.png"},
    {"BUTTONTEXT", "Reset Password / Unlock Account"},
    {"SHOW_RP_UA_LINK", "true"},
    {"AGENT_ID", ""},
    {"ACCESS_KEY", ""},
    {"INSTALLATION_KEY", ""},
    {"VERSION", ""},
    {"IS_MFA_ENFORCED", ""},
    {"OFFLINE_MFA", "false"},
    {"OFFLINE_WEB_LOGO_NAME", ""},
    {"LOCALE_ID", ""},
    {"HELP_TEXT", ""},
    {"MAC_AGENT_HOST_EXCLUDE", "okta,auth0,duosecurity.com,about:blank,javascript"},
}};

// A file that cannot be looked at counts as there: who then reads it learns why it cannot be read.
bool fileExists(const std::string& path) {
    std::error_code error;
    return std::filesystem::status(path, error).type() != std::filesystem::file_type::not_found;
}

tl::expected<Value, std::string> readDictionary(const std::string& path) {
    auto file = readPropertyListFile(path);
    if (file && !file->is_object())
        return tl::unexpected<std::string>("the property list is no dictionary");
    return file;
}

bool isStoredEncrypted(std::string_view key) {
    return key == "ACCESS_KEY" || key == "INSTALLATION_KEY";
}

StoredConfig& productConfig() {
    static StoredConfig config;
    return config;
}

/// Decrypts the two stored keys under the value key, which is read once for both.
class KeyDecryption {
  public:
    ~KeyDecryption() {
        if (valueKey_)
            wipe(*valueKey_);
    }
    KeyDecryption() = default;
    KeyDecryption(const KeyDecryption&) = delete;
    KeyDecryption& operator=(const KeyDecryption&) = delete;

    /// Nothing and a log line when a stored key does not decrypt.
    std::optional<std::string> decrypted(std::string_view key, const std::string& stored) const {
        if (stored.empty())
            return "";
        auto plain = valueKey_ ? decrypt(stored, *valueKey_, iv) : std::nullopt;
        if (!plain)
            logLine("getProductConfig : {} could not be decrypted, it counts as empty", key);
        return plain;
    }
    bool isPossible() const { return valueKey_.has_value(); }

  private:
    std::optional<AesKey> valueKey_ = valueKey();
};

// Puts the file's values over the defaults; tells whether they are whole.
ConfigState readInto(StoredConfig& config, const std::string& path) {
    if (!fileExists(path)) {
        logLine("getProductConfig: init failed : Config file : {} not found", path);
        return ConfigState::missing;
    }
    const auto file = readDictionary(path);
    if (!file) {
        logLine("getProductConfig : Config file : {} could not be read: {}", path, file.error());
        return ConfigState::damaged;
    }
    const KeyDecryption keys;
    bool whole = keys.isPossible();
    for (const auto& [key, value] : defaults) {
        const auto stored = stringValue(*file, key);
        if (!stored)
            continue;
        auto plain = isStoredEncrypted(key) ? keys.decrypted(key, *stored) : stored;
        whole = whole && plain;
        config.settings[std::string(key)] = std::move(plain).value_or("");
        config.named.emplace(key);
    }
    return whole ? ConfigState::whole : ConfigState::damaged;
}

constexpr std::chrono::seconds lockWait{5};

// Held for every read-change-write, so that no other process's change is lost in it.
auto lockFor(const std::string& path, std::chrono::milliseconds wait) {
    return WaitingLock::take(path + ".lock", wait);
}

// One read-change-write of the file. What cannot be understood is never overwritten: it may be
// the only copy of the keys.
template <class Change>
bool changeFile(std::string_view operation, const std::string& path, Change change) {
    if (!fileExists(path)) {
        logLine("{} :: Config file : {} not found", operation, path);
        return false;
    }
    const auto lock = lockFor(path, lockWait);
    if (!lock) {
        logLine("{} :: Config file : {} could not be locked and stays as it is: {}", operation,
                path, lock.error());
        return false;
    }
    removeLeftovers(path);
    auto settings = readDictionary(path);
    if (!settings) {
        logLine("{} :: Config file : {} could not be read and stays as it is: {}", operation, path,
                settings.error());
        return false;
    }
    change(*settings);
    const auto written = writePropertyListFile(path, *settings);
    if (!written)
        logLine("{} :: Config file : {} could not be written: {}", operation, path,
                written.error());
    return written.has_value();
}

}  // namespace

const std::string& getConfigFilePath() {
    static const std::string path = systemPaths().supportDirectory() + "/config.plist";
    return path;
}

Value& getProductConfig(const std::string& path) {
    StoredConfig& config = productConfig();
    if (config.settings.empty())
        config = readConfig(path);
    return config.settings;
}

StoredConfig readConfig(const std::string& path) {
    StoredConfig config;
    for (const auto& [key, value] : defaults)
        config.settings[std::string(key)] = value;
    config.state = readInto(config, path);
    return config;
}

ConfigState productConfigState() {
    getProductConfig(getConfigFilePath());
    return productConfig().state;
}

bool isConfigured(std::string_view key) {
    return productConfig().named.contains(key);
}

void updatePostConfigData(const Value& configData, const std::string& path) {
    if (!configData.is_object() || configData.empty()) {
        logLine("updatePostConfigData :: Invalid config data obtained from server");
        return;
    }
    changeFile("updatePostConfigData", path, [&](Value& settings) {
        for (const auto& [key, value] : configData.items())
            if (value.is_string())
                settings[key] = value;
    });
}

void addConfiguration(const std::string& key, const std::string& value, const std::string& path) {
    changeFile("addConfiguration", path, [&](Value& settings) { settings[key] = value; });
}

bool changeConfiguration(const std::map<std::string, std::string>& values,
                         const std::string& path) {
    return changeFile("changeConfiguration", path, [&](Value& settings) {
        for (const auto& [key, value] : values)
            settings[key] = value;
    });
}

void removeConfigurationLeftovers(const std::string& path) {
    // Whoever holds the lock clears away himself.
    if (fileExists(path) && lockFor(path, {}))
        removeLeftovers(path);
}

void removeConfiguration(const std::string& key, const std::string& path) {
    changeFile("removeConfiguration", path, [&](Value& settings) { settings.erase(key); });
}

bool isSetting(std::string_view key) {
    return std::any_of(defaults.begin(), defaults.end(),
                       [&](const Setting& setting) { return setting.first == key; });
}

std::string configText(const Value& config, std::string_view key) {
    return stringValue(config, key).value_or("");
}

bool isTrue(const Value& config, std::string_view key) {
    return upperCase(configText(config, key)) == "TRUE";
}

bool isFalse(const Value& config, std::string_view key) {
    return upperCase(configText(config, key)) == "FALSE";
}

}  // namespace quorl
