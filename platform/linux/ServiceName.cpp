#include "ServiceName.h"

#include "PacketSocket.h"
#include "RuntimeFolder.h"
#include "SocketAddress.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace quorl {
namespace {

using Result = tl::expected<FileDescriptor, std::string>;

tl::unexpected<std::string> systemError(const std::string& what) {
    return tl::unexpected(what + ": " + std::strerror(errno));
}

Result lockName(const std::string& path) {
    FileDescriptor lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock)
        return systemError(path);
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            return tl::unexpected(std::string("another agent serves it"));
        return systemError(path);
    }
    return lock;
}

// The lock tells a dead agent's socket from a live one's, unless somebody removed the lock file.
tl::expected<void, std::string> checkReplaceable(const std::string& path,
                                                 const sockaddr_un& address) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) {
        if (errno == ENOENT)
            return {};
        return systemError(path);
    }
    if (!S_ISSOCK(info.st_mode))
        return tl::unexpected(path + ": not a socket, left alone");
    const FileDescriptor probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN)
        return tl::unexpected(std::string("another agent serves it"));
    return {};
}

// The socket takes its name only when it already listens: who sees the name can connect.
Result listenAt(const std::string& path) {
    constexpr int queueLength = 64;
    const std::string unready = unreadyPath(path);
    const auto address = socketAddress(unready);
    if (!address)
        return tl::unexpected(path + ": the path is too long for a socket");
    unlink(unready.c_str());
    FileDescriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // The mode given to the socket before it is bound is the one that its file gets.
    if (!listener || fchmod(listener.get(), 0600) != 0 ||
        bind(listener.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
        listen(listener.get(), queueLength) != 0 || rename(unready.c_str(), path.c_str()) != 0)
        return systemError(path);
    return listener;
}

}  // namespace

tl::expected<std::unique_ptr<ServiceName>, std::string> ServiceName::claim(
    const std::string& runtimeDir, const std::string& name) {
    const std::string path = servicePath(runtimeDir, name);
    const auto address = socketAddress(path);
    if (!address)
        return tl::unexpected(path + ": the path is too long for a socket");
    if (auto folder = prepareRuntimeFolder(runtimeDir); !folder)
        return tl::unexpected(folder.error());
    if (auto left = inheritedName(path))
        return std::unique_ptr<ServiceName>(new ServiceName(std::move(*left), path));
    Result lock = lockName(lockPath(path));
    if (!lock)
        return tl::unexpected(lock.error());
    if (auto replaceable = checkReplaceable(path, *address); !replaceable)
        return tl::unexpected(replaceable.error());
    Result listener = listenAt(path);
    if (!listener)
        return tl::unexpected(listener.error());
    return std::unique_ptr<ServiceName>(
        new ServiceName({std::move(*lock), std::move(*listener)}, path));
}

ServiceName::ServiceName(HeldName held, std::string path)
    : held_(std::move(held)), path_(std::move(path)) {}

ServiceName::~ServiceName() {
    // While the lock is still held. The lock file stays: removing it would let two agents each
    // lock a file of their own.
    if (held_.listener)
        unlink(path_.c_str());
}

}  // namespace quorl
