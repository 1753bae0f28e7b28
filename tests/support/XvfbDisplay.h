#pragma once

#include "Subprocess.h"

#include <string>

namespace quorl::test {

/// An X display of the test's own, without a window manager; DISPLAY names it. The words go to the
/// server behind the usual ones.
class XvfbDisplay {
  public:
    explicit XvfbDisplay(const std::string& size = "1280x800",
                         const std::vector<std::string>& words = {})
        : number_(temporaryFile()), server_({.command = command(size, words), .output = number_}) {
        waitFor([this] { return TestSandbox::read(number_).ends_with('\n'); });
        std::string number = TestSandbox::read(number_);
        std::filesystem::remove(number_);
        if (number.empty()) {
            ADD_FAILURE() << "Xvfb does not start";
            return;
        }
        number.pop_back();
        setenv("DISPLAY", (":" + number).c_str(), 1);
    }
    static std::string name() { return getenv("DISPLAY"); }

  private:
    static std::vector<std::string> command(const std::string& size,
                                            const std::vector<std::string>& words) {
        std::vector<std::string> all = {"Xvfb",       "-displayfd", "1",   "-screen", "0",
                                        size + "x24", "-nolisten",  "tcp", "-noreset"};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
    static std::string temporaryFile() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quorl-display-XXXXXX").string();
        close(mkstemp(pattern.data()));
        return pattern;
    }

    std::string number_;
    Subprocess server_;
};

}  // namespace quorl::test
