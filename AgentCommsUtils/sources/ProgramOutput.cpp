#include "ProgramOutput.h"

#include "Handle.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace quorl {
namespace {

using SteadyClock = std::chrono::steady_clock;

template <class T, int (*Init)(T*), int (*Destroy)(T*)>
class SpawnSetting {
  public:
    SpawnSetting() { Init(&setting_); }
    ~SpawnSetting() { Destroy(&setting_); }
    SpawnSetting(const SpawnSetting&) = delete;
    SpawnSetting& operator=(const SpawnSetting&) = delete;
    T* get() { return &setting_; }

  private:
    T setting_;
};
using SpawnActions = SpawnSetting<posix_spawn_file_actions_t, posix_spawn_file_actions_init,
                                  posix_spawn_file_actions_destroy>;
using SpawnAttributes =
    SpawnSetting<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;

/// A child that leads a process group; the whole group ends with this object.
class ProcessGroup {
  public:
    explicit ProcessGroup(pid_t leader) : leader_(leader) {}
    ~ProcessGroup() {
        // Before the leader is reaped: until then its number cannot name another group.
        kill(-leader_, SIGKILL);
        while (waitpid(leader_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    ProcessGroup(const ProcessGroup&) = delete;
    ProcessGroup& operator=(const ProcessGroup&) = delete;

  private:
    pid_t leader_;
};

std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (const std::string& text : texts)
        result.push_back(const_cast<char*>(text.c_str()));
    result.push_back(nullptr);
    return result;
}

tl::unexpected<std::string> failure(const ProgramRun& run, std::string_view reason) {
    return tl::unexpected(fmt::format("{}: {}", run.path, reason));
}

tl::expected<pid_t, std::string> start(const ProgramRun& run, int output) {
    SpawnActions actions;
    posix_spawn_file_actions_adddup2(actions.get(), output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(actions.get(), STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1);

    SpawnAttributes attributes;
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(attributes.get(), &none);
    posix_spawnattr_setsigdefault(attributes.get(), &all);
    posix_spawnattr_setpgroup(attributes.get(), 0);
    posix_spawnattr_setflags(
        attributes.get(), POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> words = {run.path};
    words.insert(words.end(), run.arguments.begin(), run.arguments.end());
    const auto argv = pointers(words);
    const auto envp = pointers(run.environment);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, run.path.c_str(), actions.get(), attributes.get(),
                                  argv.data(), envp.data());
    if (error != 0)
        return failure(run, strerror(error));
    return pid;
}

}  // namespace

tl::expected<std::string, std::string> readProgramOutput(const ProgramRun& run) {
    const auto deadline = SteadyClock::now() + run.timeLimit;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return failure(run, strerror(errno));
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const auto leader = start(run, writing.get());
    if (!leader)
        return tl::unexpected(leader.error());
    const ProcessGroup group(*leader);
    writing.reset();

    std::string output;
    std::array<char, 16'384> buffer;
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now());
        pollfd wanted{.fd = reading.get(), .events = POLLIN, .revents = 0};
        const int ready = left.count() > 0 ? poll(&wanted, 1, static_cast<int>(left.count())) : 0;
        if (ready == 0)
            return failure(run,
                           fmt::format("no end of output within {} ms", run.timeLimit.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        const ssize_t count = ready < 0 ? -1 : read(reading.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return failure(run, strerror(errno));
        if (count == 0)
            return output;
        output.append(buffer.data(), static_cast<std::size_t>(count));
        if (output.size() > run.largestOutput)
            return failure(run, fmt::format("more than {} bytes of output", run.largestOutput));
    }
}

}  // namespace quorl
