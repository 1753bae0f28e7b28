#include "SandboxCheck.h"

#include "GlibSupport.h"

#include <errno.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string_view>

namespace quorl {
namespace {

// Where this file lies, every program of the engine takes itself for confined already.
constexpr const char* confinementMark = "/.flatpak-info";

constexpr const char* trial[] = {"/usr/bin/timeout",
                                 "5",
                                 "/usr/bin/bwrap",
                                 "--unshare-all",
                                 "--ro-bind",
                                 "/",
                                 "/",
                                 "--proc",
                                 "/proc",
                                 "--dev",
                                 "/dev",
                                 "--tmpfs",
                                 "/tmp",
                                 "/bin/true",
                                 nullptr};

std::string firstLine(std::string_view text) {
    return std::string(text.substr(0, text.find('\n')));
}

}  // namespace

SandboxTrial::SandboxTrial() {
    if (access(confinementMark, F_OK) == 0) {
        ended_ = true;
        fault_ = fmt::format(
            "{} lies in the machine's root folder, with which the web engine runs without its "
            "sandbox: remove the file",
            confinementMark);
        return;
    }
    GError* error = nullptr;
    int output = -1;
    if (!g_spawn_async_with_pipes(
            nullptr, const_cast<char**>(trial), nullptr,
            static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL),
            nullptr, nullptr, &trial_, nullptr, nullptr, &output, &error)) {
        const GErrorHandle reason(error);
        cannotStart_ = reason->message;
    }
    said_.reset(output);
}

SandboxTrial::~SandboxTrial() {
    fault();
}

const std::optional<std::string>& SandboxTrial::fault() {
    if (!ended_)
        fault_ = outcome();
    ended_ = true;
    return fault_;
}

std::optional<std::string> SandboxTrial::outcome() {
    std::string why = cannotStart_;
    if (why.empty()) {
        std::string output;
        char buffer[512];
        for (ssize_t got = 0; (got = read(said_.get(), buffer, sizeof buffer)) > 0;)
            output.append(buffer, static_cast<std::size_t>(got));
        int status = 0;
        while (waitpid(trial_, &status, 0) < 0 && errno == EINTR) {
        }
        GError* error = nullptr;
        if (g_spawn_check_wait_status(status, &error))
            return std::nullopt;
        const GErrorHandle reason(error);
        why = output.empty() ? reason->message : firstLine(output);
    }
    return fmt::format(
        "the web engine's sandbox does not start ({}): install bubblewrap, and let the agent's "
        "account make user namespaces (user.max_user_namespaces, AppArmor)",
        why);
}

}  // namespace quorl
