#pragma once

#include "Value.h"

#include <map>
#include <set>
#include <string>

namespace quorl {

/// Path of the configuration file, settled on first use.
const std::string& getConfigFilePath();

/// The process-wide configuration dictionary (text to text). The first call fills it with the
/// defaults and the file's values, the two keys decrypted; later calls give the same dictionary
/// whatever the path. A file that is missing, damaged, huge or unreadable gives the defaults and a
/// log line. Load it first on the main thread.
Value& getProductConfig(const std::string& path);

/// What the loading found: no file; a file that cannot be used as it stands (unreadable, damaged,
/// no dictionary, a stored key that does not decrypt, no usable value key); or all in order.
enum class ConfigState { missing, damaged, whole };

/// What a file holds, over the defaults.
struct StoredConfig {
    Value settings = Value::object();
    std::set<std::string, std::less<>> named;  ///< the settings that the file itself gives
    ConfigState state = ConfigState::missing;
};

/// Reads the file anew, past the process-wide dictionary: for whoever must know what another
/// process has just written.
StoredConfig readConfig(const std::string& path);

/// The state of what getProductConfig() gives, which loads first where nothing has.
ConfigState productConfigState();

/// Whether what getProductConfig() gives for the key comes from the file and is no default.
bool isConfigured(std::string_view key);

/// Merges the texts of a dictionary into the file at the path. Nothing when a file is missing.
void updatePostConfigData(const Value& configData, const std::string& path);

/// Sets one key of the file at the path and writes the file back whole.
void addConfiguration(const std::string& key, const std::string& value, const std::string& path);

/// Sets several keys in one replacement of the file: all of them or none. False and a log line on
/// failure.
bool changeConfiguration(const std::map<std::string, std::string>& values, const std::string& path);

/// Clears away what killed writers left beside the file, unless one is writing right now.
void removeConfigurationLeftovers(const std::string& path);

/// Removes one key of the file at the path and writes the file back whole.
void removeConfiguration(const std::string& key, const std::string& path);

/// Whether the configuration has a setting of that name.
bool isSetting(std::string_view key);

/// The configuration's text under the key; "" when absent.
std::string configText(const Value& config, std::string_view key);

/// True when the setting, in upper case, equals "TRUE".
bool isTrue(const Value& config, std::string_view key);

/// True when the setting, in upper case, equals "FALSE".
bool isFalse(const Value& config, std::string_view key);

}  // namespace quorl
