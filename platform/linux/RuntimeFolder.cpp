#include "RuntimeFolder.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace quorl {
namespace {

tl::unexpected<std::string> systemError(const std::string& what) {
    return tl::unexpected(what + ": " + std::strerror(errno));
}

}  // namespace

// Who can write into the folder can put a socket of their own in the place of ours.
tl::expected<void, std::string> prepareRuntimeFolder(const std::string& folder) {
    // The process's file mode mask is tighter than what the folder needs.
    if (mkdir(folder.c_str(), 0755) == 0) {
        if (chmod(folder.c_str(), 0755) != 0)
            return systemError(folder);
    } else if (errno != EEXIST) {
        return systemError(folder);
    }
    struct stat info {};
    if (stat(folder.c_str(), &info) != 0)
        return systemError(folder);
    if (!S_ISDIR(info.st_mode))
        return tl::unexpected(folder + ": not a folder");
    if ((info.st_uid != 0 && info.st_uid != geteuid()) || (info.st_mode & (S_IWGRP | S_IWOTH)))
        return tl::unexpected(folder + ": others can write into the folder");
    return {};
}

}  // namespace quorl
