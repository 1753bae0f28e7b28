#include "Log.h"

#include "RepeatedLines.h"

#include <errno.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <mutex>

namespace quorl {
namespace {

class Log {
  public:
    void setDestination(const LogDestination& destination) {
        const std::lock_guard lock(mutex_);
        tellHeldBack(repeated_.all());
        destination_ = destination;
        isFull_ = false;
    }

    void write(std::string_view message) {
        const std::lock_guard lock(mutex_);
        const auto now = std::chrono::steady_clock::now();
        tellHeldBack(repeated_.finished(now));
        if (repeated_.admits(message, now))
            writeBounded(message);
    }

    void tellRepeated() {
        const std::lock_guard lock(mutex_);
        tellHeldBack(repeated_.all());
    }

  private:
    void tellHeldBack(const std::vector<RepeatedLines::HeldBack>& lines) {
        for (const auto& [line, times] : lines)
            writeBounded(fmt::format("log : {} times more within a second: {}", times, line));
    }

    void writeBounded(std::string_view message) {
        if (isFull_)
            return;
        // Asked each time, since other processes write to the same file.
        struct stat attributes {};
        isFull_ = fstat(destination_.descriptor, &attributes) == 0 &&
                  attributes.st_size >= destination_.largest;
        writeNow(isFull_
                     ? "log : the file is full, nothing more is written until it is opened again"
                     : message);
    }

    void writeNow(std::string_view message) const {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        thread_local const long thread = syscall(SYS_gettid);
        const std::string line = fmt::format(
            "{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} {}[{}:{}] {}\n", local.tm_year + 1900,
            local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
            now.tv_nsec / 1'000'000, program_invocation_short_name, getpid(), thread, message);
        // One write: the file is open for appending, so whole lines of several processes stay
        // whole.
        [[maybe_unused]] const ssize_t written =
            ::write(destination_.descriptor, line.data(), line.size());
    }

    std::mutex mutex_;
    LogDestination destination_{.descriptor = STDERR_FILENO};
    RepeatedLines repeated_;
    bool isFull_ = false;
};

// Never destroyed: objects that outlive it at the process's end may still have something to say.
Log& theLog() {
    static Log& log = *new Log;
    return log;
}

}  // namespace

void setLogDestination(const LogDestination& destination) {
    theLog().setDestination(destination);
}

void tellRepeatedLines() {
    theLog().tellRepeated();
}

void writeLogLine(std::string_view message) {
    theLog().write(message);
}

}  // namespace quorl
