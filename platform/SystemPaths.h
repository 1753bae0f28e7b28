#pragma once

#include <string>
#include <string_view>

namespace quorl {

/// Where the agent finds its files. Each is a build setting that the environment may replace
/// (QUORL_SUPPORT_BASE, QUORL_RUNTIME_DIR, QUORL_RESOURCES_DIR, QUORL_SYSTEM_ROOT), unless the
/// process runs with raised privileges.
struct SystemPaths {
    std::string supportBase;   ///< e.g. "/Library/Application Support", no slash at its end
    std::string runtimeDir;    ///< folder of the bootstrap socket
    std::string resourcesDir;  ///< data folder: page, string tables, icon, interface description
    std::string systemRoot;    ///< put in front of every system file that discovery reads

    /// The support directory as it is built everywhere, doubled slash included:
    /// supportBase + "//QUORLLoginAgent".
    std::string supportDirectory() const { return supportBase + "//QUORLLoginAgent"; }

    /// A system file under the system root.
    std::string systemFile(std::string_view path) const { return systemRoot + std::string(path); }
};

/// The paths of this process, settled on first use.
const SystemPaths& systemPaths();

}  // namespace quorl
