#include "ConfigParser.h"

#include "CommonUtils.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "PropertyList.h"
#include "SystemPaths.h"

#include <array>
#include <filesystem>
#include <utility>

namespace quorl {
namespace {

using Setting = std::pair<std::string_view, std::string_view>;

constexpr std::array<Setting, 21> defaults = {{
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
    {"MAC_AGENT_HOST_EXCLUDE", "okta,auth0,duosecurity.com,about:blank,javascript"},
}};

bool fileExists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
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

std::string decryptedKey(std::string_view key, const std::string& stored) {
    if (stored.empty())
        return "";
    auto plain = decrypt(stored, aesKey, iv);
    if (!plain)
        logLine("getProductConfig : {} could not be decrypted, it counts as empty", key);
    return std::move(plain).value_or("");
}

// One read-change-write of the file. What cannot be understood is never overwritten: it may be
// the only copy of the keys.
template <class Change>
void changeFile(std::string_view operation, const std::string& path, Change change) {
    if (!fileExists(path)) {
        logLine("{} :: Config file : {} not found", operation, path);
        return;
    }
    auto settings = readDictionary(path);
    if (!settings) {
        logLine("{} :: Config file : {} could not be read and stays as it is: {}", operation, path,
                settings.error());
        return;
    }
    change(*settings);
    if (const auto written = writePropertyListFile(path, *settings); !written)
        logLine("{} :: Config file : {} could not be written: {}", operation, path,
                written.error());
}

}  // namespace

const std::string& getConfigFilePath() {
    static const std::string path = systemPaths().supportDirectory() + "/config.plist";
    return path;
}

Value& getProductConfig(const std::string& path) {
    static Value config = Value::object();
    if (!config.empty())
        return config;
    for (const auto& [key, value] : defaults)
        config[std::string(key)] = value;
    if (!fileExists(path)) {
        logLine("getProductConfig: init failed : Config file : {} not found", path);
        return config;
    }
    const auto file = readDictionary(path);
    if (!file) {
        logLine("getProductConfig : Config file : {} could not be read: {}", path, file.error());
        return config;
    }
    for (const auto& [key, value] : defaults) {
        const auto stored = stringValue(*file, key);
        if (stored)
            config[std::string(key)] =
                isStoredEncrypted(key) ? decryptedKey(key, *stored) : *stored;
    }
    return config;
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

void removeConfiguration(const std::string& key, const std::string& path) {
    changeFile("removeConfiguration", path, [&](Value& settings) { settings.erase(key); });
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
