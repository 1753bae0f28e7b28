#include "PrivateHome.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstring>
#include <string_view>

namespace quorl {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view namePrefix = "home-";

struct Folder {
    const char* variable;
    const char* name;
};
constexpr Folder folders[] = {{"HOME", ""},
                              {"XDG_RUNTIME_DIR", "run"},
                              {"XDG_CACHE_HOME", "cache"},
                              {"XDG_DATA_HOME", "data"},
                              {"XDG_CONFIG_HOME", "config"},
                              {"XDG_STATE_HOME", "state"}};

// Held as long as its owner lives; nothing when somebody else holds it.
FileDescriptor lockedFolder(const fs::path& folder) {
    FileDescriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (lock && flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        lock.reset();
    return lock;
}

void removeAbandoned(const fs::path& folder) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (!entry.path().filename().string().starts_with(namePrefix))
            continue;
        if (const FileDescriptor lock = lockedFolder(entry.path()))
            fs::remove_all(entry.path(), error);
    }
}

}  // namespace

tl::expected<std::unique_ptr<PrivateHome>, std::string> PrivateHome::make(const fs::path& folder) {
    removeAbandoned(folder);
    std::string path = (folder / (std::string(namePrefix) + "XXXXXX")).string();
    const auto failure = [&path] { return tl::unexpected(path + ": " + std::strerror(errno)); };
    if (!mkdtemp(path.data()))
        return failure();
    FileDescriptor lock = lockedFolder(path);
    if (!lock)
        return failure();
    std::unique_ptr<PrivateHome> home(new PrivateHome(path, std::move(lock)));
    for (const Folder& each : folders) {
        const fs::path place = *each.name ? home->path() / each.name : home->path();
        if (*each.name && mkdir(place.c_str(), 0700) != 0)
            return failure();
        setenv(each.variable, place.c_str(), 1);
    }
    return home;
}

PrivateHome::~PrivateHome() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

}  // namespace quorl
