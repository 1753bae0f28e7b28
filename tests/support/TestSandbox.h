#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace quorl::test {

/// A folder of the test's own that holds everything the agent reads and writes; the environment
/// points there. Make it before anything asks for a path, since paths are settled once a process.
class TestSandbox {
  public:
    TestSandbox() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quorl-test-XXXXXX").string();
        root_ = mkdtemp(pattern.data());
        std::filesystem::create_directories(support());
        std::filesystem::create_directories(root_ / "run");
        std::filesystem::create_directories(root_ / "system");
        setenv("QUORL_SUPPORT_BASE", (root_ / "base").c_str(), 1);
        setenv("QUORL_RUNTIME_DIR", (root_ / "run").c_str(), 1);
        setenv("QUORL_AGENT_ACCOUNT", "the account of the test itself", 0);
        setenv("QUORL_GUARD_DIR", (root_ / "guard").c_str(), 1);
        setenv("QUORL_SYSTEM_ROOT", (root_ / "system").c_str(), 1);
    }
    ~TestSandbox() {
        std::error_code error;
        std::filesystem::remove_all(root_, error);
    }
    TestSandbox(const TestSandbox&) = delete;
    TestSandbox& operator=(const TestSandbox&) = delete;

    const std::filesystem::path& root() const { return root_; }
    std::filesystem::path support() const { return root_ / "base" / "QUORLLoginAgent"; }
    std::filesystem::path system() const { return root_ / "system"; }

    static std::string read(const std::filesystem::path& path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream out;
        out << in.rdbuf();
        return out.str();
    }
    static void write(const std::filesystem::path& path, const std::string& content) {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }

  private:
    std::filesystem::path root_;
};

/// The permissions of what lies there, not of what a link leads to; 0 where nothing does.
inline mode_t modeOf(const std::filesystem::path& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

/// How often the part occurs in the text.
inline std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

/// Catches what is logged while it lives, by pointing standard error at a file.
class LogCapture {
  public:
    LogCapture() : saved_(dup(STDERR_FILENO)) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quorl-log-XXXXXX").string();
        const int fd = mkstemp(pattern.data());
        path_ = pattern;
        // Appending, as the log file is: a reopening elsewhere must not tear lines.
        const int append = open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        dup2(append, STDERR_FILENO);
        close(append);
        close(fd);
    }
    ~LogCapture() {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
        std::filesystem::remove(path_);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string text() const { return TestSandbox::read(path_); }
    /// How often the message occurs.
    std::size_t count(const std::string& message) const { return occurrences(text(), message); }
    bool has(const std::string& message) const { return count(message) > 0; }

  private:
    int saved_;
    std::filesystem::path path_;
};

/// Waits until the condition holds; false when the deadline passes first.
template <class Condition>
bool waitFor(Condition condition, std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace quorl::test
