#pragma once

#include "Value.h"

#include <string>

namespace quorl {

/// Path of the configuration file, settled on first use.
const std::string& getConfigFilePath();

/// The process-wide configuration dictionary (text to text). The first call fills it with the
/// defaults and the file's values, the two keys decrypted; later calls give the same dictionary
/// whatever the path. A file that is missing, damaged, huge or unreadable gives the defaults and a
/// log line. Load it first on the main thread.
Value& getProductConfig(const std::string& path);

/// Merges the texts of a dictionary into the file at the path. Nothing when a file is missing.
void updatePostConfigData(const Value& configData, const std::string& path);

/// Sets one key of the file at the path and writes the file back whole.
void addConfiguration(const std::string& key, const std::string& value, const std::string& path);

/// Removes one key of the file at the path and writes the file back whole.
void removeConfiguration(const std::string& key, const std::string& path);

/// The configuration's text under the key; "" when absent.
std::string configText(const Value& config, std::string_view key);

/// True when the setting, in upper case, equals "TRUE".
bool isTrue(const Value& config, std::string_view key);

/// True when the setting, in upper case, equals "FALSE".
bool isFalse(const Value& config, std::string_view key);

}  // namespace quorl
