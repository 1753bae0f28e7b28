#include "HelperStart.h"

#include "HelperProcess.h"
#include "Paths.h"
#include "TextParts.h"
#include "Texts.h"

#include <grp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <cstring>

extern char** environ;

namespace quorl::pam {
namespace {

// A packet that no helper sends: its kind is none, an errno value follows.
constexpr unsigned char startErrorHeader[] = {'K', 'V', 'P', verifier::version, 0};
constexpr std::size_t startErrorSize = sizeof startErrorHeader + sizeof(int);

void raiseLimit(__rlimit_resource resource, rlim_t wanted) {
    rlimit limit{wanted, wanted};
    if (setrlimit(resource, &limit) == 0 || getrlimit(resource, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(resource, &limit);
}

void setResourceLimits() {
    for (const __rlimit_resource resource :
         {RLIMIT_AS, RLIMIT_DATA, RLIMIT_FSIZE, RLIMIT_NPROC, RLIMIT_CPU})
        raiseLimit(resource, RLIM_INFINITY);
    raiseLimit(RLIMIT_NOFILE, 1024);
    raiseLimit(RLIMIT_STACK, 8 << 20);
    // What the helper holds in memory must not be left in a file.
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

void takeRulingAccount() {
    // The library's own calls would pass the change on to the host's other threads, which do not
    // exist in this process.
    const uid_t uid = rulingUid();
    if (uid != 0)
        return;
    syscall(SYS_setgroups, 0, nullptr);
    syscall(SYS_setresgid, 0, 0, 0);
    syscall(SYS_setresuid, uid, uid, uid);
}

void resetSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number <= SIGRTMAX; ++number)
        sigaction(number, &action, nullptr);
    // A limit on file sizes that stands nevertheless is to show as a failed write.
    action.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Leaves /dev/null as 0 to 2, the channel as 3, and nothing else.
bool arrangeDescriptors(int channel) {
    constexpr int first = verifier::channelDescriptor;
    const int high = fcntl(channel, F_DUPFD, first + 1);
    const int null = open("/dev/null", O_RDWR);
    if (high < 0 || null < 0)
        return false;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (dup2(null, fd) < 0)
            return false;
    if (dup2(high, first) < 0)
        return false;
    if (syscall(SYS_close_range, first + 1, ~0U, 0) != 0) {
        constexpr int most = 65536;
        for (int fd = first + 1; fd < most; ++fd)
            close(fd);
    }
    return true;
}

[[noreturn]] void becomeHelper(const char* program, int channel,
                               const HelperEnvironment& environment) {
    setsid();
    setResourceLimits();
    takeRulingAccount();
    resetSignals();
    if (arrangeDescriptors(channel) && chdir("/") == 0) {
        channel = verifier::channelDescriptor;
        char* const arguments[] = {const_cast<char*>(program), nullptr};
        execve(program, arguments, environment.entries.data());
    }
    const int reason = errno;
    unsigned char packet[startErrorSize];
    std::memcpy(packet, startErrorHeader, sizeof startErrorHeader);
    std::memcpy(packet + sizeof startErrorHeader, &reason, sizeof reason);
    send(channel, packet, sizeof packet, MSG_NOSIGNAL | MSG_DONTWAIT);
    _exit(127);
}

void sendDescriptor(int channel, int fd) {
    char tag = 'P';
    iovec part{&tag, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    sendmsg(channel, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

bool isLanguage(const char* entry) {
    std::string_view value(entry);
    const std::size_t equals = value.find('=');
    if (equals == value.npos || !(startsWith(value, "LANG=") || startsWith(value, "LC_")))
        return false;
    value.remove_prefix(equals + 1);
    return isLocale(value);
}

}  // namespace

HelperEnvironment::HelperEnvironment() {
    std::size_t count = 0;
    for (char** entry = environ; entry && *entry && count < most; ++entry)
        if (isLanguage(*entry))
            entries[count++] = *entry;
}

long forkUnseen() {
    return syscall(SYS_clone, 0UL, 0UL, 0UL, 0UL, 0UL);
}

void startFromBetween(const char* program, StartChannels channels,
                      const HelperEnvironment& environment) {
    const long helper = forkUnseen();
    if (helper == 0)
        becomeHelper(program, channels.helper, environment);
    const int pidfd = helper > 0 ? static_cast<int>(syscall(SYS_pidfd_open, helper, 0)) : -1;
    if (pidfd >= 0)
        sendDescriptor(channels.birth, pidfd);
    _exit(0);
}

int startError(verifier::Received packet) {
    int reason = 0;
    if (packet.size == startErrorSize &&
        std::memcmp(packet.bytes, startErrorHeader, sizeof startErrorHeader) == 0)
        std::memcpy(&reason, packet.bytes + sizeof startErrorHeader, sizeof reason);
    return reason;
}

}  // namespace quorl::pam
