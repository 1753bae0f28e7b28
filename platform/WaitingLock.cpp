#include "WaitingLock.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>

#include <thread>

namespace quorl {

tl::expected<WaitingLock, std::string> WaitingLock::take(const std::string& path,
                                                         std::chrono::milliseconds deadline,
                                                         const Meanwhile& meanwhile) {
    constexpr std::chrono::milliseconds pause{20};
    const auto end = std::chrono::steady_clock::now() + deadline;
    FileDescriptor file(
        open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0600));
    if (!file)
        return tl::unexpected(path + ": " + strerror(errno));
    while (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return tl::unexpected(path + ": " + strerror(errno));
        if (std::chrono::steady_clock::now() >= end)
            return tl::unexpected(path + ": held by another program");
        if (meanwhile && !meanwhile())
            return tl::unexpected(std::string("given up"));
        std::this_thread::sleep_for(pause);
    }
    return WaitingLock(std::move(file));
}

}  // namespace quorl
