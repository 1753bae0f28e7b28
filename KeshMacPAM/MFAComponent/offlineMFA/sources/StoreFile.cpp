#include "StoreFile.h"

#include "AtomicFile.h"
#include "Log.h"
#include "SystemPaths.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace quorl {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr mode_t privateMode = S_IRUSR | S_IWUSR;

// Root writes. The agent, where it runs under an account of its own, reads.
FileAccess storeAccess() {
    const auto readers = geteuid() == 0 ? readersGroup() : std::nullopt;
    return readers ? FileAccess(privateMode | S_IRGRP, readers) : FileAccess(privateMode);
}

constexpr milliseconds longestWait{5000};
constexpr milliseconds pollEvery{5};

// flock has no time-out of its own, and a signal for one would be the host program's.
bool lockWithin(int file, milliseconds wait) {
    const auto end = steady_clock::now() + wait;
    while (flock(file, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(pollEvery);
    }
    return true;
}

}  // namespace

StoreLock::StoreLock() {
    const std::string path = systemPaths().supportDirectory() + "/offline-data.lock";
    file_.reset(open(path.c_str(),
                     O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                     privateMode));
    held_ = file_ && lockWithin(file_.get(), longestWait);
    if (!held_)
        logLine("OfflineDataHandler :: no lock on {}, nothing is changed: {}", path,
                strerror(errno));
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
    const FileAccess access = storeAccess();
    if (access.group && attributes.st_gid != *access.group &&
        lchown(path.c_str(), uid_t(-1), *access.group) != 0)
        return tl::unexpected<std::string>(strerror(errno));
    if ((attributes.st_mode & 07777) != access.mode &&
        fchmodat(AT_FDCWD, path.c_str(), access.mode, AT_SYMLINK_NOFOLLOW) != 0)
        return tl::unexpected<std::string>(strerror(errno));
    return {};
}

bool keepAside(const std::string& path) {
    const std::string aside = path + ".unreadable";
    std::error_code error;
    std::filesystem::remove(aside, error);
    // A second name, not another one: the path is never without a file.
    if (linkat(AT_FDCWD, path.c_str(), AT_FDCWD, aside.c_str(), 0) != 0) {
        logLine("OfflineDataHandler :: {} cannot be kept aside: {}", path, strerror(errno));
        return false;
    }
    logLine("OfflineDataHandler :: {} cannot be read, it is kept as {}", path, aside);
    return true;
}

tl::expected<void, std::string> replacePrivately(const std::string& path, ByteView content) {
    removeLeftovers(path);
    return replaceFile(path, content, storeAccess());
}

}  // namespace quorl
