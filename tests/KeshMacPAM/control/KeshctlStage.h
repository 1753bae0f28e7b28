#pragma once

#include "Subprocess.h"

#include <fmt/format.h>

namespace quorl::test {

/// keshctl in a folder of its own, as root of a machine that is made up.
class KeshctlStage {
  public:
    struct Outcome {
        int status;
        std::string said;
    };
    Outcome keshctl(const std::vector<std::string>& words, const std::string& input = "") {
        const std::string in = sandbox.root() / "input", out = sandbox.root() / "output";
        TestSandbox::write(in, input);
        std::filesystem::remove(out);
        std::vector<std::string> command = {QUORL_BINARY_DIR "/bin/keshctl"};
        command.insert(command.end(), words.begin(), words.end());
        Subprocess run({.command = command, .output = out, .errors = out, .input = in});
        const auto status = run.wait(std::chrono::seconds(40));
        return {status.value_or(-1), TestSandbox::read(out)};
    }
    std::string file(const std::string& path) const {
        return TestSandbox::read(sandbox.system().string() + path);
    }
    void write(const std::string& path, const std::string& text) {
        TestSandbox::write(sandbox.system().string() + path, text);
    }
    void program(const std::string& path, const std::string& script) {
        write(path, "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(sandbox.system().string() + path,
                                     std::filesystem::perms::owner_all);
    }
    std::string config() const { return TestSandbox::read(sandbox.support() / "config.plist"); }

    TestSandbox sandbox;
};

}  // namespace quorl::test
