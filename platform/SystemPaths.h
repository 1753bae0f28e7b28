#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Where the agent finds its files. Each is a build setting that the environment may replace
/// (QUORL_SUPPORT_BASE, QUORL_RUNTIME_DIR, QUORL_RESOURCES_DIR, QUORL_SYSTEM_ROOT,
/// QUORL_AGENT_ACCOUNT, QUORL_GUARD_DIR), unless the process runs with raised privileges.
struct SystemPaths {
    std::string supportBase;   ///< e.g. "/Library/Application Support", no slash at its end
    std::string runtimeDir;    ///< folder of the bootstrap socket
    std::string resourcesDir;  ///< data folder: page, string tables, icon, interface description
    std::string systemRoot;    ///< put in front of every system file that discovery reads
    std::string agentAccount;  ///< name of the account as which the agent runs
    std::string guardDir;      ///< root's records of wrong and used codes, a file a user

    /// The support directory as it is built everywhere, doubled slash included:
    /// supportBase + "//QUORLLoginAgent".
    std::string supportDirectory() const { return supportBase + "//QUORLLoginAgent"; }

    /// A system file under the system root.
    std::string systemFile(std::string_view path) const { return systemRoot + std::string(path); }
};

/// The paths of this process, settled on first use.
const SystemPaths& systemPaths();

/// Where this process keeps what it writes for itself (its log, cookies): the support directory;
/// for the agent under its own account, which may not write there, the folder "agent" in it.
std::string ownDirectory();

/// The group that may read what root keeps in the support directory: the agent's account's, where
/// that account exists and the directory is shared with it; nothing otherwise.
std::optional<gid_t> readersGroup();

/// Above the folders of programs, data and libraries, in a build tree as installed.
std::string installationPrefix();

}  // namespace quorl
