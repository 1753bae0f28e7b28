#include "SystemPaths.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

namespace quorl {
namespace {

std::string setting(const char* variable, const std::string& fallback) {
    const char* value = secure_getenv(variable);
    return value && *value ? std::string(value) : fallback;
}

// Installed, the data folder lies at ../share beside the folder of the executable; in a build
// tree the staged copy lies at ../resources. Neither depends on where the tree was built.
std::string defaultResources() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path executable = fs::read_symlink("/proc/self/exe", error);
    const fs::path prefix = executable.parent_path().parent_path();
    const fs::path installed = prefix / "share" / "QUORLLoginAgent";
    if (fs::is_directory(installed, error))
        return installed.string();
    return (prefix / "resources").string();
}

}  // namespace

const SystemPaths& systemPaths() {
    static const SystemPaths paths{
        .supportBase = setting("QUORL_SUPPORT_BASE", QUORL_SUPPORT_BASE),
        .runtimeDir = setting("QUORL_RUNTIME_DIR", QUORL_RUNTIME_DIR),
        .resourcesDir = setting("QUORL_RESOURCES_DIR", defaultResources()),
        .systemRoot = setting("QUORL_SYSTEM_ROOT", ""),
    };
    return paths;
}

}  // namespace quorl
