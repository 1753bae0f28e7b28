// kesh-verify: verifies the second factor of one sign-in. The PAM module starts it, with one end of
// a socket pair as descriptor 3 and nothing else open.
#include "HostChannel.h"
#include "Logger.h"
#include "SignIn.h"
#include "SystemPaths.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>

namespace {

using namespace quorl;

// A file of ours must never come to lie where somebody writes texts.
void fillStandardDescriptors() {
    for (int fd = 0; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd)
            _exit(1);
}

bool isChannel(int fd) {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

}  // namespace

int main() {
    if (!isChannel(verifier::channelDescriptor)) {
        std::fputs("kesh-verify: is started by the PAM module, not by hand\n", stderr);
        return 64;
    }
    fillStandardDescriptors();
    fcntl(verifier::channelDescriptor, F_SETFD, FD_CLOEXEC);
    umask(077);
    // No key of a connection may be written where a caller's variable says.
    unsetenv("SSLKEYLOGFILE");
    openlog("kesh-verify", LOG_PID, LOG_AUTHPRIV);
    const SignIn* running = nullptr;
    HostChannel host(FileDescriptor(verifier::channelDescriptor), [&](std::string_view why) {
        if (running)
            running->noteGone(why);
    });
    SignInStart start = host.start();
    initLog(systemPaths().supportDirectory() + "/VantorixClient.log");
    SignIn signIn(host, std::move(start), systemClock());
    running = &signIn;
    signIn.run();
}
