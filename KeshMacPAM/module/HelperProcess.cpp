#include "HelperProcess.h"

#include "HelperStart.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace quorl::pam {
namespace {

/// Holds back every signal from this thread, so that no handler of the host's runs in the child.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

  private:
    sigset_t before_;
};

struct Pair {
    Descriptor ours;
    Descriptor theirs;

    bool open() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            return false;
        ours.reset(ends[0]);
        theirs.reset(ends[1]);
        ours.leaveStandard();
        theirs.leaveStandard();
        return ours && theirs;
    }
};

Descriptor receivedDescriptor(int channel) {
    char tag;
    iovec part{&tag, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(channel, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) != 1)
        return Descriptor();
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_type != SCM_RIGHTS || header->cmsg_len != CMSG_LEN(sizeof(int)))
        return Descriptor();
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    return Descriptor(fd);
}

}  // namespace

int HelperProcess::start(const char* program) {
    Pair talk, birth;
    if (!talk.open() || !birth.open())
        return errno;
    const HelperEnvironment environment;
    long child;
    {
        const SignalsHeld held;
        child = forkUnseen();
        if (child == 0)
            startFromBetween(program, {talk.theirs.get(), birth.theirs.get()}, environment);
    }
    if (child < 0)
        return errno;
    // Without an exit signal the child is waited for by __WALL alone, and is there to be waited for
    // even where the host ignores SIGCHLD.
    while (waitpid(static_cast<pid_t>(child), nullptr, __WALL) < 0 && errno == EINTR) {
    }
    channel_ = std::move(talk.ours);
    pidfd_ = receivedDescriptor(birth.ours.get());
    pidfd_.leaveStandard();
    return pidfd_ ? 0 : EAGAIN;
}

void HelperProcess::end() {
    if (pidfd_)
        syscall(SYS_pidfd_send_signal, pidfd_.get(), SIGKILL, nullptr, 0);
    channel_.reset();
}

}  // namespace quorl::pam
