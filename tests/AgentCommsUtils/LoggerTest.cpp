#include "Logger.h"
#include "StandardStreams.h"
#include "TestSandbox.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace quorl {
namespace {

using test::LogCapture;
using test::TestSandbox;
using testing::MatchesRegex;
namespace fs = std::filesystem;

const std::string linePattern =
    "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} [^ []+\\[[0-9]+:[0-9]+\\] ";

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class LoggerTest : public testing::Test {
  protected:
    void makeLog(std::uintmax_t size) const {
        TestSandbox::write(path_, "first line\n");
        fs::resize_file(path_, size);
    }
    std::vector<fs::path> rotated() const {
        const auto isRotated = testing::MatchesRegex(
            "VantorixClient[0-9]{2}-[0-9]{2}-[0-9]{4} [0-9]{2}-[0-9]{2}-[0-9]{2}\\.log");
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(sandbox_.support()))
            if (testing::Value(entry.path().filename().string(), isRotated))
                found.push_back(entry.path());
        return found;
    }

    const TestSandbox sandbox_;
    const fs::path path_ = sandbox_.support() / "VantorixClient.log";
    LogCapture original_;
};

TEST_F(LoggerTest, CreatesAPrivateFileAndWritesWholeLinesToIt) {
    umask(0);
    initLog(path_);
    logLine("sendMFAResponse :: initiated....");
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    const auto lines = linesOf(TestSandbox::read(path_));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], MatchesRegex(linePattern + "sendMFAResponse :: initiated[.]{4}"));
    EXPECT_TRUE(original_.has("] initLog : Log File already present\n"));
}

TEST_F(LoggerTest, RotatesOnlyAboveTheLimit) {
    makeLog(10'000'000);
    initLog(path_);
    EXPECT_TRUE(rotated().empty());
    EXPECT_TRUE(
        original_.has(fmt::format("initLog : Log File[{}] Size : 10000000\n", path_.string())));
    EXPECT_EQ(destroyLog(), 0);

    fs::resize_file(path_, 10'000'001);
    fs::create_symlink(path_, sandbox_.root() / "link");
    initLog(sandbox_.root() / "link");
    EXPECT_TRUE(rotated().empty()) << "a link is not the log";
    initLog(path_);
    ASSERT_EQ(rotated().size(), 1U);
    EXPECT_EQ(fs::file_size(rotated()[0]), 10'000'001U);
    EXPECT_LT(fs::file_size(path_), 1000U);
}

TEST_F(LoggerTest, LosesLinesWhileClosedAndNeverGivesItsDescriptorAway) {
    initLog(path_);
    EXPECT_EQ(destroyLog(), 0);
    EXPECT_EQ(pamLogFileP, nullptr);
    const int next = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_NE(next, STDERR_FILENO);
    close(next);
    logLine("lost");
    initLog(path_);
    logLine("kept");
    const std::string log = TestSandbox::read(path_);
    EXPECT_EQ(log.find("lost"), std::string::npos);
    EXPECT_NE(log.find("kept"), std::string::npos);
}

TEST_F(LoggerTest, SaysOnceWhyItCannotOpenAndThenGoesNowhere) {
    const fs::path outside = sandbox_.root() / "outside";
    const fs::path fifo = sandbox_.root() / "fifo";
    const fs::path link = sandbox_.root() / "link";
    TestSandbox::write(outside, "untouched");
    fs::create_symlink(outside, link);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const fs::path& bad : {sandbox_.root() / "missing" / "log", sandbox_.root(), link, fifo}) {
        const LogCapture original;
        setLogDestination({.descriptor = STDERR_FILENO});
        EXPECT_EQ(openApplicationLog(bad), nullptr) << bad;
        EXPECT_EQ(original.count("[" + bad.string() + "] could not be opened: "), 1U) << bad;
        const std::string before = original.text();
        logLine("nowhere");
        initLog(bad);
        EXPECT_EQ(pamLogFileP, nullptr);
        EXPECT_EQ(original.text(), before);
    }
    EXPECT_EQ(TestSandbox::read(outside), "untouched");
}

TEST_F(LoggerTest, ALoopOfLinesIsCountedAndAFullFileTakesOneMoreLine) {
    initLog(path_);
    for (int i = 0; i < 10'000; ++i) {
        logLine("refused");
        logLine("shown again");
    }
    destroyLog();
    const auto lines = linesOf(TestSandbox::read(path_));
    EXPECT_LT(lines.size(), 500U);
    std::uint64_t told = 0;
    for (const std::string& line : lines) {
        const auto at = line.find("log : ");
        told += at == line.npos ? 1 : std::stoull(line.substr(at + 6));
    }
    EXPECT_EQ(told, 20'000U) << "every line is written or counted";

    fs::resize_file(path_, 99'999'999);
    fs::rename(path_, sandbox_.support() / "full.log");
    fs::create_hard_link(sandbox_.support() / "full.log", path_);
    setLogDestination({.descriptor = open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC),
                       .largest = 100'000'000});
    for (int i = 0; i < 100; ++i)
        logLine("line {}", i);
    const auto size = fs::file_size(path_);
    EXPECT_LT(size, 100'000'400U);
    EXPECT_EQ(TestSandbox::read(path_).substr(99'999'999).find("line 1\n"), std::string::npos);
    EXPECT_NE(TestSandbox::read(path_).find("the file is full"), std::string::npos);
}

// What a page's process inherits: no descriptor of the log, and streams that cannot forge lines.
TEST_F(LoggerTest, ProgramsThatAreStartedReachTheLogByEscapedLinesAlone) {
    const FileDescriptor out(dup(STDOUT_FILENO));
    std::FILE* const stream = openApplicationLog(path_);
    ASSERT_NE(stream, nullptr);
    logLine("ours");
    {
        const StandardStreamsInLog streams;
        ASSERT_EQ(system("printf 'a\\rb\\033[2J\\nno end' >&2; ls -l /proc/self/fd;"
                         "(cat; : > /dev/stdout; echo 2026-01-01 forged) <&2 2>/dev/null"),
                  0);
        EXPECT_TRUE(test::waitFor(
            [&] { return TestSandbox::read(path_).find("forged") != std::string::npos; }));
        ASSERT_EQ(system("head -c 5000 /dev/zero | tr '\\0' x"), 0);
    }
    dup2(out.get(), STDOUT_FILENO);
    closeApplicationLog(stream);
    const std::string log = TestSandbox::read(path_);
    EXPECT_EQ(log.find(path_.string()), std::string::npos) << "the log is no descriptor of theirs";
    EXPECT_NE(log.find("ours\n"), std::string::npos) << "emptied";
    EXPECT_NE(log.find("standard error : a\\rb\\U001b[2J\n"), std::string::npos);
    EXPECT_NE(log.find("standard error : 2026-01-01 forged\n"), std::string::npos);
    for (const std::string& line : linesOf(log)) {
        EXPECT_THAT(line, MatchesRegex(linePattern + ".*"));
        EXPECT_LT(line.size(), 1200U);
    }
    EXPECT_NE(log.find(std::string(1000, 'x') + "\n"), std::string::npos);
}

TEST_F(LoggerTest, ThreadsNeverTearEachOthersLines) {
    std::FILE* stream = openApplicationLog(path_);
    ASSERT_NE(stream, nullptr);
    constexpr int perThread = 1000;
    const auto write = [](char letter) {
        for (int i = 0; i < perThread; ++i)
            logLine("{}", std::string(static_cast<std::size_t>(i), letter));
    };
    std::thread other(write, 'a');
    write('b');
    other.join();
    closeApplicationLog(stream);
    const auto lines = linesOf(TestSandbox::read(path_));
    EXPECT_EQ(lines.size(), 2U * perThread);
    for (const std::string& line : lines)
        ASSERT_THAT(line, MatchesRegex(linePattern + "(a*|b*)"));
}

}  // namespace
}  // namespace quorl
