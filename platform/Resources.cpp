#include "Resources.h"

#include "PropertyList.h"
#include "SystemPaths.h"

#include <filesystem>

namespace quorl {
namespace {

// A language name comes from the configuration file; it must stay a name, never a way to other
// folders.
bool isPlainName(std::string_view name) {
    return !name.empty() && name.find('/') == name.npos && name.front() != '.';
}

std::string tableFolder(const std::string& folder, std::string_view language) {
    return folder + "/" + std::string(language) + ".lproj";
}

}  // namespace

Resources::Resources(std::string folder) : folder_(std::move(folder)) {}

std::optional<std::string> Resources::pathForResource(std::string_view name,
                                                      std::string_view type) const {
    std::string path = folder_ + "/" + std::string(name) + "." + std::string(type);
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return std::nullopt;
    return path;
}

bool Resources::hasLocalization(std::string_view language) const {
    std::error_code error;
    return isPlainName(language) &&
           std::filesystem::is_directory(tableFolder(folder_, language), error);
}

std::optional<std::string> Resources::localizedString(std::string_view key,
                                                      std::string_view language) const {
    if (!isPlainName(language))
        return std::nullopt;
    const auto table =
        readPropertyListFile(tableFolder(folder_, language) + "/Localizable.strings");
    return table ? stringValue(*table, key) : std::nullopt;
}

const Resources& mainBundle() {
    static const Resources bundle(systemPaths().resourcesDir);
    return bundle;
}

}  // namespace quorl
