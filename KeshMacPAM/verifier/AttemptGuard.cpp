#include "AttemptGuard.h"

#include "AtomicFile.h"
#include "Handle.h"
#include "Log.h"
#include "WaitingLock.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

namespace quorl {
namespace {

constexpr std::size_t largestFile = 65'536;
constexpr std::chrono::seconds lockWait{5};
constexpr std::chrono::hours idleWrites{1};

tl::expected<void, std::string> makeFolder(const std::string& folder) {
    struct stat info {};
    for (std::size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        const bool last = slash == std::string::npos;
        if (mkdir(folder.substr(0, slash).c_str(), last ? 0700 : 0755) != 0 && errno != EEXIST)
            return tl::unexpected(folder + ": " + strerror(errno));
        if (last)
            break;
    }
    // Whoever else may write there could take a lock away, or his own wrong codes.
    if (lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != geteuid() ||
        (info.st_mode & 077) != 0)
        return tl::unexpected(folder + ": not a folder that is ours alone");
    return {};
}

}  // namespace

AttemptGuard::AttemptGuard(std::string folder, uid_t user, const Clock& clock)
    : folder_(std::move(folder)), user_(user), clock_(clock) {}

GuardState::Time AttemptGuard::now() const {
    return std::chrono::floor<std::chrono::seconds>(clock_.now());
}

tl::expected<GuardState, std::string> AttemptGuard::change(const Change& change) {
    if (auto made = makeFolder(folder_); !made)
        return tl::unexpected(made.error());
    const auto lock = WaitingLock::take(folder_ + "/lock", lockWait);
    if (!lock)
        return tl::unexpected(lock.error());
    const std::string path = folder_ + "/" + std::to_string(user_);
    struct stat info {};
    const bool missing = lstat(path.c_str(), &info) != 0 && errno == ENOENT;
    const auto content = readFile(path, largestFile);
    const auto stored = content ? GuardState::from(*content, now()) : GuardState::damaged(now());
    GuardState state = missing ? GuardState() : stored;
    state.see(now());
    change(state, now());
    // A look that only moves the newest time on a little is not worth the disk's time: what is
    // judged by it counts in days.
    GuardState same = state;
    same.newest = stored.newest;
    if (content && same.bytes() == *content && abs(state.newest - stored.newest) < idleWrites)
        return state;
    removeLeftovers(path);
    if (auto written = replaceFile(path, state.bytes(), 0600); !written)
        return tl::unexpected(path + ": " + written.error());
    return state;
}

tl::expected<GuardState, std::string> AttemptGuard::see() {
    return change([](GuardState&, GuardState::Time) {});
}

}  // namespace quorl
