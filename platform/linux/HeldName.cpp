#include "HeldName.h"

#include "SocketAddress.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

namespace quorl {
namespace {

constexpr const char* variable = "QUORL_HELD_NAME";

bool isFileAt(const std::string& path, int descriptor) {
    struct stat held {};
    struct stat there {};
    return fstat(descriptor, &held) == 0 && lstat(path.c_str(), &there) == 0 &&
           held.st_dev == there.st_dev && held.st_ino == there.st_ino;
}

bool isSocketAt(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

bool listens(int socket, const std::string& path) {
    const auto made = socketAddress(path);
    sockaddr_un bound{};
    socklen_t size = sizeof bound;
    int listening = 0;
    socklen_t length = sizeof listening;
    return made && getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &size) == 0 &&
           std::strncmp(bound.sun_path, made->sun_path, sizeof bound.sun_path) == 0 &&
           getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) == 0 && listening;
}

}  // namespace

std::string lockPath(const std::string& path) {
    return path + ".lock";
}

std::string unreadyPath(const std::string& path) {
    return path + ".new";
}

std::string bequeath(const HeldName& name) {
    for (const FileDescriptor* descriptor : {&name.lock, &name.listener})
        fcntl(descriptor->get(), F_SETFD, 0);
    return std::string(variable) + "=" + std::to_string(name.lock.get()) + "," +
           std::to_string(name.listener.get());
}

std::optional<HeldName> inheritedName(const std::string& path) {
    const char* text = secure_getenv(variable);
    int lock = -1;
    int listener = -1;
    const bool named = text && std::sscanf(text, "%d,%d", &lock, &listener) == 2;
    unsetenv(variable);
    // Only what is that very lock and that very socket is ours.
    HeldName name;
    if (named && isFileAt(lockPath(path), lock))
        name.lock.reset(lock);
    if (named && listens(listener, unreadyPath(path)))
        name.listener.reset(listener);
    if (!name.lock || !name.listener || !isSocketAt(path))
        return std::nullopt;
    for (const int descriptor : {lock, listener})
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return name;
}

}  // namespace quorl
