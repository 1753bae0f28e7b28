// What a page's process, a neighbour on the display and a broken machine can do to the agent, seen
// on the real processes.
#include "AgentStage.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

namespace quorl {
namespace {

using namespace test;
using namespace std::string_literals;
namespace fs = std::filesystem;

constexpr const char* probe = QUORL_SOURCE_DIR "/tests/support/display_probe.py";
// Any account that is not ours and owns nothing.
const AgentStage::Words asNobody = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                    "--no-new-privs"};

class ContainmentTest : public testing::Test {
  protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "looks into other accounts' processes: root only";
        ASSERT_FALSE(fs::exists("/.flatpak-info"))
            << "/.flatpak-info makes every web engine run without its sandbox: remove it";
    }
    void start() {
        stage.startServer();
        stage.startDisplay();
        stage.configure();
        if (!stage.account.empty())
            outputOf({"chown", "-R", "65534:65534", stage.sandbox.root()});
        stage.startAgent();
    }
    /// Shows a page and gives the process that draws it.
    std::string pageProcess() {
        stage.request({{"MFA_REQUEST_URL", "/mfa/verify"}, {"USER_NAME", "alice"}});
        EXPECT_TRUE(stage.waitForPage()) << stage.log();
        std::string last;
        for (const auto& entry : fs::directory_iterator("/proc")) {
            if (TestSandbox::read(entry.path() / "comm") == "WebKitWebProces\n" &&
                environment(entry.path().filename(), "HOME")
                    .starts_with(stage.sandbox.root().string()))
                last = entry.path().filename();
        }
        return last;
    }
    static std::string environment(const std::string& pid, const std::string& name) {
        std::istringstream entries(TestSandbox::read("/proc/" + pid + "/environ"));
        for (std::string entry; std::getline(entries, entry, '\0');) {
            if (entry.starts_with(name + "="))
                return entry.substr(name.size() + 1);
        }
        return "";
    }
    /// What the probe saw of a key typed at another client, run run as that command says.
    std::string spied(AgentStage::Words prefix) {
        const std::string out = (stage.sandbox.root() / "spied").string();
        fs::remove(out);
        prefix.insert(prefix.end(), {"python3", "-", "spy", "2"});
        Subprocess spy({.command = prefix, .output = out, .errors = out, .input = probe});
        EXPECT_TRUE(waitFor([&] { return TestSandbox::read(out).starts_with("ready"); }))
            << TestSandbox::read(out);
        stage.xdotool({"keydown", "k", "sleep", "0.5", "keyup", "k"});
        EXPECT_TRUE(spy.wait());
        const std::string text = TestSandbox::read(out);
        return text.substr(std::min(text.find("saw:"), text.size()));
    }
    static std::set<std::string> root() {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator("/"))
            names.insert(entry.path());
        return names;
    }

    AgentStage stage;
};

TEST_F(ContainmentTest, APageIsConfinedWhateverTheAccountAndTheBus) {
    const auto before = root();
    for (const bool ordinary : {true, false}) {
        stage.account = ordinary ? asNobody : AgentStage::Words();
        const std::string address = "unix:path=/tmp/quorl-containment-bus-" +
                                    std::to_string(getpid()) + "-" + std::to_string(ordinary);
        AgentStage::Words live = stage.account;
        live.insert(live.end(), {"dbus-daemon", "--session", "--nofork", "--address=" + address});
        const Subprocess daemon({.command = live});
        ASSERT_TRUE(waitFor([&] { return fs::is_socket(address.substr(10)); }));
        for (const std::string& bus : {std::string(), address}) {
            SCOPED_TRACE((ordinary ? "an ordinary account " : "root ") + bus);
            stage.agentPrefix = {"env", std::string("DBUS_SESSION_BUS_ADDRESS=") + bus,
                                 "HOME=/root"};
            outputOf({"chown", "-R", "0:0", stage.sandbox.root()});
            start();
            const std::string page = pageProcess();
            ASSERT_FALSE(page.empty()) << stage.log();
            // What is not dumpable belongs to root, so that nobody of its account reads its keys.
            struct stat memory {};
            ASSERT_EQ(stat(fmt::format("/proc/{}/mem", stage.agent().pid()).c_str(), &memory), 0);
            EXPECT_EQ(memory.st_uid, 0U);
            EXPECT_NE(TestSandbox::read("/proc/" + page + "/status").find("\nSeccomp:\t2"),
                      std::string::npos);
            for (const char* space : {"mnt", "net", "pid"})
                EXPECT_NE(fs::read_symlink("/proc/" + page + "/ns/" + space),
                          fs::read_symlink(std::string("/proc/self/ns/") + space))
                    << space;
            EXPECT_EQ(environment(page, "JSC_useJIT"), "0");
            EXPECT_EQ(outputOf({"ls", "-l", "/proc/" + page + "/fd"}).find("VantorixClient.log"),
                      std::string::npos);
            for (const char* stream : {"/fd/1", "/fd/2"}) {
                const std::string file = fs::read_symlink("/proc/" + page + stream);
                EXPECT_TRUE(file == "/dev/null" || file.starts_with("pipe:")) << file;
            }
            const std::string home = environment(page, "HOME");
            EXPECT_EQ(fs::path(environment(page, "XDG_CACHE_HOME")).parent_path(), home);
            EXPECT_EQ(stage.log().find("runs as root") == std::string::npos, ordinary);
            EXPECT_EQ(stage.agent().stop(SIGTERM), 0);
            EXPECT_FALSE(fs::exists(home));
            EXPECT_EQ(root(), before);
            fs::remove(stage.sandbox.support() / "VantorixClient.log");
        }
    }
}

TEST_F(ContainmentTest, NoKeyOfTheGreeterReachesThePagesProcess) {
    start();
    const std::string page = pageProcess();
    ASSERT_FALSE(page.empty());
    const std::string trusted = (stage.sandbox.root() / "authority").string();
    const std::string display = environment(page, "DISPLAY");
    EXPECT_EQ(spied({"env", "DISPLAY=" + display, "XAUTHORITY=" + trusted}),
              "saw: events keymap picture\n");
    const std::string untrusted = environment(page, "XAUTHORITY");
    ASSERT_NE(untrusted, trusted);
    EXPECT_FALSE(fs::exists("/proc/" + page + "/root" + trusted));
    EXPECT_EQ(spied({"nsenter", "-t", page, "-n", "env", "DISPLAY=" + display,
                     "XAUTHORITY=/proc/" + page + "/root" + untrusted}),
              "saw:\n");
    EXPECT_EQ(stage.logged("lets local programs in"), 0U) << stage.log();
}

TEST_F(ContainmentTest, WhatWasPostedIsGoneFromMemoryAfterTheAnswer) {
    start();
    const std::string password = "Pw-hJ3vQ81zTnRw";
    stage.request({{"MFA_REQUEST_URL", "/mfa/verify"},
                   {"USER_NAME", "alice"},
                   {"POST_DATA", "USER_NAME=alice&PASSWORD=" + password}});
    ASSERT_TRUE(stage.waitForPage()) << stage.log();
    EXPECT_EQ(stage.logged(password), 0U) << stage.log();
    const std::string before = stage.copiesInMemory(password);
    EXPECT_NE(before, "") << "the search finds nothing";
    stage.clickClose();
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE");
    // The engine has a heap of its own, where now and then one is left; our own copies were eight.
    std::string after;
    const auto gone = [&] {
        after = stage.copiesInMemory(password);
        return after.empty() || after == "QUORLLoginAgent 1\n";
    };
    EXPECT_TRUE(waitFor(gone, std::chrono::seconds(5))) << "before:\n"
                                                        << before << "after:\n"
                                                        << after;
}

TEST_F(ContainmentTest, ANeighboursSettingsLoadNoLibraryAndDrawNothingNowOrLater) {
    stage.startDisplay();
    const fs::path root = stage.sandbox.root();
    const std::string library = root / "neighbour.so";
    fs::copy("/usr/lib/x86_64-linux-gnu/libXau.so.6", library);
    fs::create_directories(root / "theme/gtk-3.0");
    TestSandbox::write(root / "theme/gtk-3.0/gtk.css", "* { background: #ff00ff; }");
    const std::string theme = "../../../../../../.." + (root / "theme").string();
    stage.configure({{"OFFLINE_MFA", "false"}});
    for (const bool before : {true, false}) {
        SCOPED_TRACE(before ? "there first" : "while the agent runs");
        if (!before)
            stage.startAgent();
        const std::string out = root / (before ? "first" : "later");
        Subprocess neighbour(
            {.command = {"env", "DISPLAY=" + stage.display(),
                         "XAUTHORITY=" + (root / "authority").string(), probe, "settings",
                         "Gtk/Modules", library, "Net/ThemeName", theme},
             .output = out,
             .errors = out});
        ASSERT_TRUE(waitFor([&] { return TestSandbox::read(out) == "ready\n"; }))
            << TestSandbox::read(out);
        if (before)
            stage.startAgent();
        // What it is told later it does not even try; the refusal comes before its log is open.
        if (before) {
            EXPECT_NE((stage.log() + TestSandbox::read(root / "agent.err"))
                          .find("ModuleGate : library refused: " + library),
                      std::string::npos);
        }
        EXPECT_FALSE(waitFor([&] { return stage.shows("\xff\0\xff"s); }, std::chrono::seconds(1)));
        EXPECT_EQ(TestSandbox::read(fmt::format("/proc/{}/maps", stage.agent().pid()))
                      .find("neighbour.so"),
                  std::string::npos);
        stage.agent().stop(SIGTERM);
        fs::remove(stage.sandbox.support() / "VantorixClient.log");
        fs::remove(root / "agent.err");
    }
}

TEST_F(ContainmentTest, WithoutASandboxNoPageIsShownAndTheAgentLives) {
    stage.agentPrefix = {"sh", "-c", "mount --bind /bin/false /usr/bin/bwrap && exec \"$@\"", "sh"};
    start();
    EXPECT_TRUE(stage.waitForLog("the web engine's sandbox does not start")) << stage.log();
    stage.request({{"MFA_REQUEST_URL", "/mfa/verify"}, {"USER_NAME", "alice"}});
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE") << stage.log();
    EXPECT_EQ(stage.agent().stop(SIGTERM), 0);
}

}  // namespace
}  // namespace quorl
