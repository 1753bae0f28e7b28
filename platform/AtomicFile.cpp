#include "AtomicFile.h"

#include "Handle.h"
#include "Log.h"
#include "SystemPaths.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>

namespace quorl {
namespace {

// Of a temporary file, between the name of the file it is to replace and six random letters.
constexpr std::string_view temporaryMark = ".part-";

tl::unexpected<std::string> failure(std::string_view doing) {
    return tl::unexpected(std::string(doing) + ": " + strerror(errno));
}

// Removes the temporary file unless it has taken the target's place.
class TemporaryFile {
  public:
    explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
    ~TemporaryFile() {
        if (!path_.empty())
            unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    void keep() { path_.clear(); }

  private:
    std::string path_;
};

bool writeAll(int fd, ByteView content) {
    while (!content.empty()) {
        const ssize_t written = write(fd, content.data(), content.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        content = content.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

// The temporary file may have its group from the folder, so what it has is asked, not assumed.
bool takeOwner(int fd, const struct stat& from) {
    struct stat status {};
    if (fstat(fd, &status) != 0)
        return false;
    return (status.st_uid == from.st_uid && status.st_gid == from.st_gid) ||
           fchown(fd, from.st_uid, from.st_gid) == 0;
}

std::string folderOf(const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder.string();
}

bool isAgentGroup(gid_t group) {
    std::array<char, 4096> buffer;
    struct group entry {};
    struct group* found = nullptr;
    return getgrnam_r(systemPaths().agentAccount.c_str(), &entry, buffer.data(), buffer.size(),
                      &found) == 0 &&
           found && entry.gr_gid == group;
}

enum class Owner { keep, own };

tl::expected<void, std::string> replace(const std::string& path, ByteView content,
                                        std::optional<FileAccess> access, Owner owner) {
    struct stat old {};
    const bool exists = lstat(path.c_str(), &old) == 0;
    if (!exists && errno != ENOENT)
        return failure("cannot look at the file");
    if (exists && !S_ISREG(old.st_mode))
        return tl::unexpected(std::string("not a regular file"));
    const mode_t finalMode = access ? access->mode : exists ? old.st_mode & 07777 : mode_t{0600};

    // Opened before anything changes, since the rename cannot be taken back.
    const FileDescriptor folder(open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        return failure("cannot open the folder");
    std::string name = path + std::string(temporaryMark) + "XXXXXX";
    // mkostemp creates with mode 0600, so the content is never readable for others before it is
    // meant to be.
    const FileDescriptor file(mkostemp(name.data(), O_CLOEXEC));
    if (!file)
        return failure("cannot create a temporary file");
    TemporaryFile temporary(name);
    if (exists && owner == Owner::keep && !takeOwner(file.get(), old))
        return failure("cannot keep the owner");
    if (access && access->group && fchown(file.get(), uid_t(-1), *access->group) != 0)
        return failure("cannot set the group");
    if (fchmod(file.get(), finalMode) != 0)
        return failure("cannot set the mode");
    if (!writeAll(file.get(), content))
        return failure("cannot write");
    if (fsync(file.get()) != 0)
        return failure("cannot sync the file");
    if (rename(name.c_str(), path.c_str()) != 0)
        return failure("cannot rename");
    temporary.keep();
    if (fsync(folder.get()) != 0)
        return failure("cannot sync the folder");
    return {};
}

}  // namespace

tl::expected<void, std::string> replaceFile(const std::string& path, ByteView content,
                                            std::optional<FileAccess> access) {
    return replace(path, content, access, access ? Owner::own : Owner::keep);
}

tl::expected<void, std::string> replacePrivateFile(const std::string& path, ByteView content) {
    struct stat old {};
    mode_t mode = S_IRUSR | S_IWUSR;
    if (lstat(path.c_str(), &old) == 0) {
        if ((old.st_mode & S_IRGRP) != 0 && isAgentGroup(old.st_gid))
            mode |= S_IRGRP;
        if ((old.st_mode & 077 & ~mode) != 0)
            logLine("replacePrivateFile : {} was open to others and is written back as {}", path,
                    fmt::format("{:04o}", mode));
    }
    return replace(path, content, mode, Owner::keep);
}

void removeLeftovers(const std::string& path) {
    const std::string start =
        std::filesystem::path(path).filename().string() + std::string(temporaryMark);
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folderOf(path), error), end;
         !error && entry != end; entry.increment(error)) {
        if (entry->path().filename().string().starts_with(start))
            unlink(entry->path().c_str());
    }
}

tl::expected<Bytes, std::string> readFile(const std::string& path, std::size_t limit) {
    // Without O_NONBLOCK, opening a pipe in the file's place would wait for a writer.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        return failure("cannot open");
    struct stat status {};
    if (fstat(file.get(), &status) != 0)
        return failure("cannot look at the file");
    if (!S_ISREG(status.st_mode))
        return tl::unexpected(std::string("not a regular file"));
    if (static_cast<std::uint64_t>(status.st_size) > limit)
        return tl::unexpected(std::string("too large"));
    Bytes content(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < content.size()) {
        const ssize_t got = read(file.get(), content.data() + filled, content.size() - filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return failure("cannot read");
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    content.resize(filled);
    return content;
}

}  // namespace quorl
