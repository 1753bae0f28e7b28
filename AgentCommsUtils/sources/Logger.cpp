#include "Logger.h"

#include "Handle.h"
#include "SystemPaths.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <filesystem>

namespace quorl {
namespace {

constexpr off_t largestLog = 10'000'000;
// The most that one run may write.
constexpr off_t fullLog = 10 * largestLog;

std::string rotatedName(const std::string& path) {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    const std::size_t length = strftime(stamp, sizeof stamp, "%d-%m-%Y %H-%M-%S", &local);
    return std::filesystem::path(path).replace_extension().string() + std::string(stamp, length) +
           ".log";
}

void rotateWhenLarge(const std::string& path) {
    // A symbolic link counts as itself, so it is never the reason to move what it points to.
    struct stat attributes {};
    if (lstat(path.c_str(), &attributes) != 0)
        return;
    logLine("initLog : Log File[{}] Size : {}", path, attributes.st_size);
    if (attributes.st_size <= largestLog || !S_ISREG(attributes.st_mode))
        return;
    logLine("initLog : File larger than MAX size");
    const std::string rotated = rotatedName(path);
    logLine("initLog : Renaming to {}", rotated);
    // Never over a file that has the name already: then the log goes on growing.
    renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, rotated.c_str(), RENAME_NOREPLACE);
}

// One number for the process's life, so that a thread which is writing a line never finds it closed
// or, worse, taken by a socket. Closed across an exec: a page's process must not hold the log.
class LogDescriptor {
  public:
    LogDescriptor() {
        const FileDescriptor nowhere(openNowhere());
        // Not one of the three standard streams', which are others' to reopen.
        number_ = fcntl(nowhere.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        stream_ = number_ < 0 ? nullptr : fdopen(number_, "a");
    }
    bool becomes(const FileDescriptor& file) {
        return stream_ && file && dup3(file.get(), number_, O_CLOEXEC) == number_;
    }
    bool becomesNowhere() { return becomes(FileDescriptor(openNowhere())); }
    int number() const { return number_; }
    std::FILE* stream() const { return stream_; }

  private:
    static int openNowhere() { return open("/dev/null", O_WRONLY | O_CLOEXEC); }

    int number_ = -1;
    std::FILE* stream_ = nullptr;
};

LogDescriptor& logDescriptor() {
    static LogDescriptor descriptor;
    return descriptor;
}

// Where the packages have set the machine up, administrators read a new log of root's as they read
// the system's own.
void shareWithAdministrators(const FileDescriptor& file) {
    std::array<char, 4096> names{};
    group entry{};
    group* administrators = nullptr;
    if (geteuid() == 0 && readersGroup() &&
        getgrnam_r("adm", &entry, names.data(), names.size(), &administrators) == 0 &&
        administrators && fchown(file.get(), 0, administrators->gr_gid) == 0)
        fchmod(file.get(), S_IRUSR | S_IWUSR | S_IRGRP);
}

std::FILE* openLog(const std::string& path) {
    LogDescriptor& log = logDescriptor();
    constexpr int flags =
        O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    constexpr mode_t mode = S_IRUSR | S_IWUSR;
    FileDescriptor file(open(path.c_str(), flags | O_EXCL, mode));
    if (file)
        shareWithAdministrators(file);
    else if (errno == EEXIST)
        file = FileDescriptor(open(path.c_str(), flags, mode));
    const std::string reason = file ? "not a regular file" : strerror(errno);
    struct stat attributes {};
    const bool regular = file && fstat(file.get(), &attributes) == 0 && S_ISREG(attributes.st_mode);
    if (!regular)
        logLine("initLog : Log File[{}] could not be opened: {}", path, reason);
    const bool opened = regular && log.becomes(file);
    if (!opened)
        log.becomesNowhere();
    setLogDestination({.descriptor = log.number(), .largest = fullLog});
    return opened ? log.stream() : nullptr;
}

int closeLog() {
    // First, for what is held back belongs into the file.
    setLogDestination({.descriptor = logDescriptor().number()});
    return logDescriptor().becomesNowhere() ? 0 : EOF;
}

}  // namespace

std::FILE* pamLogFileP = nullptr;

void initLog(const std::string& path) {
    rotateWhenLarge(path);
    if (pamLogFileP)
        return;
    logLine("initLog : Log File already present");
    pamLogFileP = openLog(path);
}

int destroyLog() {
    if (!pamLogFileP)
        return EOF;
    pamLogFileP = nullptr;
    return closeLog();
}

std::FILE* openApplicationLog(const std::string& path) {
    rotateWhenLarge(path);
    return openLog(path);
}

void closeApplicationLog(std::FILE* stream) {
    if (stream)
        closeLog();
}

}  // namespace quorl
