// Lets the agent, which has an account of its own, onto the accessibility bus of the greeter, which
// admits the greeter's account alone. Root starts it; it listens as root, so that the agent knows
// whom it speaks to, and goes on as the greeter's account.
#include "DisplayBus.h"
#include "Relay.h"

#include <X11/Xlib.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <optional>

namespace {

using namespace quorl;

constexpr int waitingClients = 16;

struct Account {
    uid_t user;
    gid_t group;
};

std::optional<Account> accountNamed(const char* name) {
    const passwd* entry = getpwnam(name);
    if (!entry)
        return std::nullopt;
    return Account{entry->pw_uid, entry->pw_gid};
}

int failure(const std::string& what) {
    fmt::print(stderr, "quorl-a11y-relay: {}\n", what);
    return 1;
}

FileDescriptor listenAt(const char* path, const Account& served) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path)
        return {};
    std::strcpy(address.sun_path, path);
    unlink(path);
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Of a mode that lets nobody in until it has its owner.
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        (geteuid() == 0 && chown(path, served.user, served.group) != 0) ||
        listen(socket.get(), waitingClients) != 0)
        return {};
    return socket;
}

bool becomes(const Account& account) {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 ||
                           setresgid(account.group, account.group, account.group) != 0 ||
                           setresuid(account.user, account.user, account.user) != 0))
        return false;
    return geteuid() == account.user && getuid() == account.user &&
           prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_DUMPABLE, 0) == 0;
}

bool writeNumber(const char* path, pid_t number) {
    const FileDescriptor file(
        open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    const std::string text = fmt::format("{}\n", number);
    return file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// The greeter has gone with its X server.
int displayGone(Display*) {
    _exit(0);
}

// Nothing is asked for that could be refused; the library's own handler would end the process.
int mistake(Display*, XErrorEvent*) {
    return 0;
}

void drainEvents(Display* display) {
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
    }
}

}  // namespace

int main(int argc, char** argv) {
    umask(0177);
    // Whatever the display manager left open is nothing for the greeter's account.
    close_range(STDERR_FILENO + 1, ~0U, 0);
    if (argc != 5)
        return failure("usage: quorl-a11y-relay SOCKET PID-FILE GREETER-ACCOUNT AGENT-ACCOUNT");
    const auto greeter = accountNamed(argv[3]);
    const auto agent = accountNamed(argv[4]);
    if (!greeter || !agent || greeter->user == 0)
        return failure(fmt::format("no relay between the accounts {} and {}", argv[3], argv[4]));
    XSetIOErrorHandler(displayGone);
    XSetErrorHandler(mistake);
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return failure("cannot open the display");
    FileDescriptor listener = listenAt(argv[1], *agent);
    if (!listener)
        return failure(fmt::format("cannot listen at {}: {}", argv[1], std::strerror(errno)));
    const pid_t child = fork();
    if (child < 0)
        return failure("cannot go to the background");
    // Whoever started us finds the socket there when we return.
    if (child > 0)
        _exit(writeNumber(argv[2], child) ? 0 : 1);
    openlog("quorl-a11y-relay", LOG_PID, LOG_AUTH);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nowhere, stream);
    if (setsid() < 0 || chdir("/") != 0 || !becomes(*greeter)) {
        syslog(LOG_WARNING, "cannot become the account of the greeter");
        return 1;
    }
    Relay relay({.listener = std::move(listener),
                 .served = agent->user,
                 .busAddress = [display] { return accessibilityBusOnDisplay(display); },
                 .display = ConnectionNumber(display),
                 .displayReady = [display] { drainEvents(display); }});
    for (;;)
        relay.step();
}
