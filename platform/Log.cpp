#include "Log.h"

#include <errno.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace quorl {

void writeLogLine(std::string_view message) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    thread_local const long thread = syscall(SYS_gettid);
    const std::string line = fmt::format(
        "{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} {}[{}:{}] {}\n", local.tm_year + 1900,
        local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
        now.tv_nsec / 1'000'000, program_invocation_short_name, getpid(), thread, message);
    // One write: the file is open for appending, so whole lines of several threads stay whole.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace quorl
