#include "StoreFile.h"

#include "AtomicFile.h"
#include "Log.h"
#include "SystemPaths.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

namespace quorl {
namespace {

constexpr mode_t privateMode = S_IRUSR | S_IWUSR;

int lockWaiting(int file) {
    int result = 0;
    do {
        result = flock(file, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

StoreLock::StoreLock() {
    const std::string path = systemPaths().supportDirectory() + "/offline-data.lock";
    file_.reset(open(path.c_str(),
                     O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                     privateMode));
    if (!file_ || lockWaiting(file_.get()) != 0)
        logLine("OfflineDataHandler :: no lock on {}, going on without: {}", path, strerror(errno));
}

bool createIfMissing(const std::string& path) {
    std::error_code error;
    if (std::filesystem::exists(path, error))
        return true;
    const FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, privateMode));
    // Another process may just have made it.
    return file || (errno == EEXIST && std::filesystem::exists(path, error));
}

tl::expected<void, std::string> makePrivate(const std::string& path) {
    struct stat attributes {};
    if (lstat(path.c_str(), &attributes) != 0)
        return tl::unexpected<std::string>(strerror(errno));
    if (!S_ISREG(attributes.st_mode))
        return tl::unexpected<std::string>("not a regular file");
    if ((attributes.st_mode & 07777) != privateMode &&
        fchmodat(AT_FDCWD, path.c_str(), privateMode, AT_SYMLINK_NOFOLLOW) != 0)
        return tl::unexpected<std::string>(strerror(errno));
    return {};
}

tl::expected<void, std::string> replacePrivately(const std::string& path, ByteView content) {
    removeLeftovers(path);
    return replaceFile(path, content, privateMode);
}

}  // namespace quorl
