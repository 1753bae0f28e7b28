#pragma once

#include "TestSandbox.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorl::test {

/// A folder with a copy of the module whose built-in paths point into it, the scripted helper, and
/// files that stand for the machine's own.
class ModuleSandbox {
  public:
    ModuleSandbox();
    ~ModuleSandbox() { std::filesystem::remove_all(root_); }
    ModuleSandbox(const ModuleSandbox&) = delete;
    ModuleSandbox& operator=(const ModuleSandbox&) = delete;

    std::filesystem::path path(const std::string& name) const { return root_ / name; }
    std::string seen() const { return TestSandbox::read(path("seen")); }
    /// Whether the helper that wrote "seen" is still a process.
    bool helperLives() const;
    /// A stack whose only lines are these; "MODULE" stands for the module's path.
    void stack(const std::string& service, const std::string& lines) const;

  private:
    std::filesystem::path root_;
};

/// What the person at the host types, and what the host's conversation does with it.
struct Person {
    enum class Manner { Answers, Fails, Nothing, Megabyte, NoFunction };
    Manner manner = Manner::Answers;
    std::string typed = "123456";
    std::chrono::milliseconds thinks{0};  ///< before the first answer
};

struct Scene {
    std::string user;
    std::string service = "login";
    Person person = {};
    int calls = 1;                          ///< of pam_authenticate on one handle
    std::function<void()> prepare = [] {};  ///< in the host's process, before PAM is started
};

struct Played {
    int status = -1;       ///< of the last call
    int credentials = -1;  ///< of pam_setcred after it
    std::int64_t milliseconds = 0;
    std::vector<std::string> prompts;
    std::string log;       ///< what the module wrote to the journal
    int leftOpen = -1;     ///< descriptors more than before
    bool children = true;  ///< whether a child, zombie or not, is left
    bool sameSignals = false;

    std::chrono::milliseconds took() const { return std::chrono::milliseconds(milliseconds); }
};

/// A login program in a process of its own, since limits, signals and descriptors are a process's.
class LoginHost {
  public:
    LoginHost(const ModuleSandbox& sandbox, const Scene& scene);
    ~LoginHost();
    LoginHost(LoginHost&& other) noexcept;
    LoginHost(const LoginHost&) = delete;
    LoginHost& operator=(const LoginHost&) = delete;

    pid_t pid() const { return pid_; }
    Played wait();

  private:
    pid_t pid_ = -1;
    int results_ = -1;
};

Played play(const ModuleSandbox& sandbox, const Scene& scene);

}  // namespace quorl::test
