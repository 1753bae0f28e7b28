#include "Logger.h"

#include "Handle.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

namespace quorl {
namespace {

constexpr off_t largestLog = 10'000'000;

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

// Standard error stays open across an exec, so that a child's complaints reach the log.
bool becomeStandardError(FileDescriptor& file) {
    if (file.get() != STDERR_FILENO)
        return dup2(file.get(), STDERR_FILENO) == STDERR_FILENO;
    // Descriptor 2 was closed, and the opening itself took its place.
    fcntl(file.release(), F_SETFD, 0);
    return true;
}

// Descriptor 2 is never left free: the next socket would take its place, and log lines would be
// sent over it.
bool discardStandardError() {
    FileDescriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    return nowhere && becomeStandardError(nowhere);
}

// Opened here and not by freopen, which would make the file readable for others, follow a link
// planted in its place, and leave descriptor 2 free on failure.
std::FILE* reopenStandardError(const std::string& path) {
    FileDescriptor file(open(
        path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
        S_IRUSR | S_IWUSR));
    const std::string reason = file ? "not a regular file" : strerror(errno);
    struct stat attributes {};
    const bool regular = file && fstat(file.get(), &attributes) == 0 && S_ISREG(attributes.st_mode);
    static_cast<void>(std::fflush(stderr));
    if (regular && becomeStandardError(file))
        return stderr;
    // Closed before descriptor 2 is given away, which it may have taken.
    file.reset();
    logLine("initLog : Log File[{}] could not be opened: {}", path, reason);
    discardStandardError();
    return nullptr;
}

int closeStandardError() {
    const bool flushed = std::fflush(stderr) == 0;
    return discardStandardError() && flushed ? 0 : EOF;
}

}  // namespace

std::FILE* pamLogFileP = nullptr;

void initLog(const std::string& path) {
    rotateWhenLarge(path);
    if (pamLogFileP)
        return;
    logLine("initLog : Log File already present");
    pamLogFileP = reopenStandardError(path);
}

int destroyLog() {
    if (!pamLogFileP)
        return EOF;
    pamLogFileP = nullptr;
    return closeStandardError();
}

std::FILE* openApplicationLog(const std::string& path) {
    rotateWhenLarge(path);
    return reopenStandardError(path);
}

void closeApplicationLog(std::FILE* stream) {
    if (stream)
        closeStandardError();
}

}  // namespace quorl
