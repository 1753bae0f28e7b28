#pragma once

#include "Subprocess.h"

#include <string>

namespace quorl::test {

/// An X display of the test's own, without a window manager; DISPLAY names it.
class XvfbDisplay {
  public:
    explicit XvfbDisplay(const std::string& geometry = "1280x800x24")
        : number_(temporaryFile()),
          server_({.command = {"Xvfb", "-displayfd", "1", "-screen", "0", geometry, "-nolisten",
                               "tcp", "-noreset"},
                   .output = number_}) {
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

  private:
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
