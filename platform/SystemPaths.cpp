#include "SystemPaths.h"

#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>

namespace quorl {
namespace {

std::string setting(const char* variable, const std::string& fallback) {
    const char* value = secure_getenv(variable);
    return value && *value ? std::string(value) : fallback;
}

namespace fs = std::filesystem;

// Installed, the data folder lies at ../share beside the folder of the executable, or one folder
// further up for programs in a folder of ours; in a build tree the staged copy lies at
// ../resources. Neither depends on where the tree was built.
std::string defaultResources() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path executable = fs::read_symlink("/proc/self/exe", error);
    const fs::path prefix = executable.parent_path().parent_path();
    for (const fs::path& above : {prefix, prefix.parent_path()})
        if (const fs::path installed = above / "share" / "QUORLLoginAgent";
            fs::is_directory(installed, error))
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
        .agentAccount = setting("QUORL_AGENT_ACCOUNT", QUORL_AGENT_ACCOUNT),
        .guardDir = setting("QUORL_GUARD_DIR", QUORL_GUARD_DIR),
    };
    return paths;
}

std::string ownDirectory() {
    const std::string shared = systemPaths().supportDirectory();
    const std::string agents = shared + "/agent";
    struct stat folder {};
    const bool isOurs = geteuid() != 0 && lstat(agents.c_str(), &folder) == 0 &&
                        S_ISDIR(folder.st_mode) && folder.st_uid == geteuid();
    return isOurs ? agents : shared;
}

std::optional<gid_t> readersGroup() {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> texts{};
    struct stat folder {};
    if (getpwnam_r(systemPaths().agentAccount.c_str(), &entry, texts.data(), texts.size(),
                   &found) != 0 ||
        !found || found->pw_uid == 0 ||
        stat(systemPaths().supportDirectory().c_str(), &folder) != 0 ||
        folder.st_gid != found->pw_gid)
        return std::nullopt;
    return found->pw_gid;
}

// Neither answer depends on where a tree was built. Programs that are not for a shell lie one
// folder deeper, in libexec/quorl.
std::string installationPrefix() {
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    return (folder.filename() == "quorl" ? folder.parent_path() : folder).parent_path().string();
}

}  // namespace quorl
