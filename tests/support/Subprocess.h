#pragma once

#include "TestSandbox.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

namespace quorl::test {

/// Another program, run with its own environment; ended when this goes out of scope.
class Subprocess {
  public:
    struct Options {
        std::vector<std::string> command;
        std::map<std::string, std::string> environment = {};  ///< added to ours
        std::string output = "/dev/null";                     ///< file for standard output
        std::string errors = "/dev/null";                     ///< file for standard error
        std::string input = "/dev/null";
    };

    explicit Subprocess(const Options& options) {
        std::vector<char*> argv;
        for (const std::string& word : options.command)
            argv.push_back(const_cast<char*>(word.c_str()));
        argv.push_back(nullptr);

        std::vector<std::string> variables;
        for (char** entry = environ; *entry; ++entry) {
            const std::string text = *entry;
            if (!options.environment.contains(text.substr(0, text.find('='))))
                variables.push_back(text);
        }
        for (const auto& [name, value] : options.environment)
            variables.push_back(name + "=" + value);
        std::vector<char*> envp;
        for (std::string& text : variables)
            envp.push_back(text.data());
        envp.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, options.input.c_str(), O_RDONLY, 0);
        const int create = O_WRONLY | O_CREAT | O_APPEND;
        posix_spawn_file_actions_addopen(&actions, 1, options.output.c_str(), create, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, options.errors.c_str(), create, 0600);
        if (posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Subprocess() {
        if (running())
            stop(SIGTERM);
    }
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    pid_t pid() const { return pid_; }

    bool running() {
        if (pid_ <= 0 || status_)
            return false;
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) != pid_)
            return true;
        status_ = exitStatus(status);
        return false;
    }
    /// Exit status once it has ended by itself (128 + signal when killed); nothing past the
    /// deadline.
    std::optional<int> wait(std::chrono::milliseconds deadline = std::chrono::seconds(20)) {
        waitFor([this] { return !running(); }, deadline);
        return status_;
    }
    /// Sends the signal and gives the exit status; kills what does not end within 10 s.
    int stop(int signal) {
        if (running()) {
            kill(pid_, signal);
            if (!wait(std::chrono::seconds(10))) {
                kill(pid_, SIGKILL);
                wait();
            }
        }
        return status_.value_or(-1);
    }

  private:
    static int exitStatus(int status) {
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    pid_t pid_ = -1;
    std::optional<int> status_;
};

/// Runs a program to its end and gives what it wrote on standard output.
inline std::string outputOf(const std::vector<std::string>& command) {
    std::string pattern = (std::filesystem::temp_directory_path() / "quorl-out-XXXXXX").string();
    close(mkstemp(pattern.data()));
    Subprocess(Subprocess::Options{.command = command, .output = pattern}).wait();
    const std::string text = TestSandbox::read(pattern);
    std::filesystem::remove(pattern);
    return text;
}

/// The text as the agent stores keys, encrypted by openssl under a key in hexadecimal.
inline std::string opensslEncrypted(const std::string& text, const std::string& key) {
    return outputOf({"sh", "-c",
                     "printf %s \"$1\" | openssl enc -aes-256-cbc -a -A -nosalt -K \"$2\" "
                     "-iv 5c1e0a7f3b92d4e6a18c07f2b4d96e31",
                     "sh", text, key});
}

/// The same under the value key that is built in.
inline std::string underTheValueKey(const std::string& text) {
    return opensslEncrypted(text,
                            "6d61e11afe1eb951a8969a7aa524a71fe2f9218be0df0944b45c696c2b908bbd");
}

/// A process that goes on with the test's memory; it ends well when the work gives true.
template <class Work>
pid_t inChild(Work work) {
    const pid_t child = fork();
    if (child == 0)
        _exit(work() ? 0 : 1);
    return child;
}
inline bool endsWell(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace quorl::test
