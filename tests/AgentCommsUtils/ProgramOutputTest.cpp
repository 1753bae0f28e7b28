#include "Handle.h"
#include "ProgramOutput.h"
#include "TestSandbox.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

namespace quorl::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

ProgramRun shell(const std::string& script) {
    return {.path = "/bin/sh", .arguments = {"-c", script}, .environment = {"PATH=/usr/bin:/bin"}};
}

bool hasNoChildren() {
    return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

// Ended: gone, or waiting for whoever inherited it.
bool hasEnded(const std::string& pid) {
    const std::string state = TestSandbox::read("/proc/" + pid + "/stat");
    return state.empty() || state.find(") Z ") != std::string::npos;
}

TEST(ProgramOutput, IsEverythingUntilTheProgramClosesIt) {
    EXPECT_EQ(readProgramOutput(shell("printf 'a\\n'; sleep 0.05; printf b; exit 3")), "a\nb");
    EXPECT_EQ(readProgramOutput(shell("")), "");
    ProgramRun large = shell("head -c 1000000 /dev/zero");
    EXPECT_EQ(readProgramOutput(large)->size(), 1'000'000U);
    EXPECT_TRUE(hasNoChildren());
}

TEST(ProgramOutput, TheProgramGetsNothingOfOursButItsOutput) {
    const LogCapture log;
    setenv("QUORL_SECRET", "x", 1);
    const FileDescriptor inherited(fcntl(0, F_DUPFD, 57));  // not closed on exec by itself
    ASSERT_TRUE(inherited);
    ProgramRun run = shell("env | grep QUORL; ls /proc/$$/fd; cat; echo error >&2");
    run.environment.push_back("QUORL_SYSTEM_ROOT=/r");
    EXPECT_EQ(readProgramOutput(run), "QUORL_SYSTEM_ROOT=/r\n0\n1\n2\n");
    sigset_t blocked;
    sigfillset(&blocked);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    signal(SIGPIPE, SIG_IGN);
    // The first 28 signals, neither blocked nor ignored.
    EXPECT_EQ(readProgramOutput({.path = "/bin/grep",
                                 .arguments = {"-cE", "Sig(Blk|Ign):.*0{7}$", "/proc/self/status"},
                                 .environment = {}}),
              "2\n");
    EXPECT_EQ(log.text(), "");
}

TEST(ProgramOutput, IsCutOffAfterTheTimeLimitWithTheWholeProcessGroup) {
    const TestSandbox sandbox;
    const std::string pids = (sandbox.root() / "pids").string();
    ProgramRun run = shell("sleep 1000 & echo $! >" + pids + "; echo $$ >>" + pids +
                           "; printf started; trap '' TERM; wait");
    run.timeLimit = 300ms;
    const auto start = std::chrono::steady_clock::now();
    const auto output = readProgramOutput(run);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    ASSERT_FALSE(output);
    EXPECT_THAT(output.error(), HasSubstr("no end of output within 300 ms"));
    EXPECT_TRUE(hasNoChildren());
    std::istringstream lines(TestSandbox::read(pids));
    int seen = 0;
    for (std::string pid; lines >> pid; ++seen)
        EXPECT_TRUE(waitFor([&] { return hasEnded(pid); })) << pid;
    EXPECT_EQ(seen, 2);
}

TEST(ProgramOutput, WhatCannotBeReadGivesTheReason) {
    const TestSandbox sandbox;
    const std::string file = (sandbox.root() / "file").string();
    TestSandbox::write(file, "#!/nonexistent/interpreter\n");
    const auto reasonFor = [](const std::string& path) {
        return readProgramOutput({.path = path, .arguments = {}, .environment = {}})
            .map([](const std::string&) { return std::string("started"); })
            .error();
    };
    EXPECT_THAT(reasonFor("/nonexistent/tool"), HasSubstr("No such file"));
    EXPECT_THAT(reasonFor(file), HasSubstr("Permission denied"));
    chmod(file.c_str(), 0700);
    EXPECT_THAT(reasonFor(file), HasSubstr("No such file"));
    EXPECT_THAT(reasonFor(sandbox.root().string()), HasSubstr("Permission denied"));
    EXPECT_THAT(readProgramOutput(shell("yes")).error(), HasSubstr("more than 1048576 bytes"));
    EXPECT_TRUE(hasNoChildren());
}

}  // namespace
}  // namespace quorl::test
