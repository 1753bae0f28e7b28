#include "StandardStreams.h"

#include "Log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>

namespace quorl {
namespace {

constexpr std::size_t longestLine = 1000;
// What a pipe holds: more than that was written after the end.
constexpr std::size_t mostAfterTheEnd = 64 << 10;

void setStandardStreams(int file) {
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
}

/// Puts lines together again and logs them.
class Lines {
  public:
    ~Lines() { log(); }
    void add(std::string_view text) {
        for (const char c : text) {
            if (c != '\n')
                line_ += c;
            if (c == '\n' || line_.size() == longestLine)
                log();
        }
    }

  private:
    void log() {
        if (!line_.empty())
            logLine("standard error : {}", line_);
        line_.clear();
    }

    std::string line_;
};

void readUntilEnd(int pipe, int end) {
    Lines lines;
    std::array<char, 4096> buffer;
    const auto take = [&] {
        const ssize_t got = read(pipe, buffer.data(), buffer.size());
        if (got > 0)
            lines.add({buffer.data(), static_cast<std::size_t>(got)});
        return got > 0 ? static_cast<std::size_t>(got) : 0;
    };
    pollfd entries[] = {{.fd = pipe, .events = POLLIN, .revents = 0},
                        {.fd = end, .events = POLLIN, .revents = 0}};
    while (entries[1].revents == 0) {
        if (poll(entries, std::size(entries), -1) > 0 && entries[0].revents != 0)
            take();
    }
    for (std::size_t rest = 0, got = 1; got > 0 && rest < mostAfterTheEnd; rest += got)
        got = take();
}

}  // namespace

StandardStreamsInLog::StandardStreamsInLog() {
    int ends[2] = {-1, -1};
    end_.reset(eventfd(0, EFD_CLOEXEC));
    if (!end_ || pipe2(ends, O_CLOEXEC) != 0) {
        logLine("standard error : not logged, there is no pipe for it");
        setStandardStreams(FileDescriptor(open("/dev/null", O_WRONLY | O_CLOEXEC)).get());
        return;
    }
    pipe_.reset(ends[0]);
    const FileDescriptor writing(ends[1]);
    // The reader's end alone: a writer of ours that does not wait would lose lines.
    fcntl(pipe_.get(), F_SETFL, O_NONBLOCK);
    setStandardStreams(writing.get());
    reader_ = std::thread(readUntilEnd, pipe_.get(), end_.get());
}

StandardStreamsInLog::~StandardStreamsInLog() {
    setStandardStreams(FileDescriptor(open("/dev/null", O_WRONLY | O_CLOEXEC)).get());
    if (!reader_.joinable())
        return;
    eventfd_write(end_.get(), 1);
    reader_.join();
}

}  // namespace quorl
