// The agent as a screen reader finds it: read and operated by an independent client of the
// accessibility bus, which is another account's where root can make it so.
#include "AgentStage.h"

#include <gtest/gtest.h>
#include <pwd.h>

namespace quorl {
namespace {

using namespace test;
namespace fs = std::filesystem;

constexpr const char* secret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
constexpr const char* reader = QUORL_SOURCE_DIR "/tests/accessibility/reader.py";

class ScreenReaderTest : public testing::Test {
  protected:
    void SetUp() override { stage.startDisplay(); }

    fs::path path(const std::string& name) const { return stage.sandbox.root() / name; }
    AgentStage::Words onDisplay(const AgentStage::Words& command) const {
        AgentStage::Words words = {
            "env", "DISPLAY=" + stage.display(), "XAUTHORITY=" + path("authority").string(),
            "XDG_RUNTIME_DIR=" + path("greeter").string(), "HOME=" + path("greeter").string()};
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }
    /// The greeter's accessibility bus, as that account where there is one.
    void startBus() {
        fs::create_directories(path("greeter"));
        AgentStage::Words command = greeter;
        for (const char* word :
             {"dbus-run-session", "--", "sh", "-c",
              "echo \"$DBUS_SESSION_BUS_ADDRESS\" >\"$HOME/session\" && exec setpriv --pdeathsig "
              "TERM "
              "/usr/libexec/at-spi-bus-launcher --launch-immediately --a11y=1 --screen-reader=1"})
            command.emplace_back(word);
        if (!greeter.empty()) {
            outputOf({"chown", "daemon:", path("greeter")});
            outputOf({"chmod", "a+rx", stage.sandbox.root()});
            outputOf({"chmod", "a+r", path("authority")});
        }
        bus_ = std::make_unique<Subprocess>(Subprocess::Options{.command = onDisplay(command)});
        ASSERT_TRUE(waitFor([this] { return !busAddress().empty(); }));
    }
    std::string busAddress() const {
        const std::string text = outputOf(onDisplay({"xprop", "-root", "-notype", "AT_SPI_BUS"}));
        const auto from = text.find('"');
        return from == std::string::npos ? "" : text.substr(from + 1, text.rfind('"') - from - 1);
    }
    std::string read(const AgentStage::Words& words) const {
        AgentStage::Words command = greeter;
        for (const std::string& word :
             {std::string("env"), "AT_SPI_BUS_ADDRESS=" + busAddress(), std::string("timeout"),
              std::string("20"), std::string(reader)})
            command.push_back(word);
        command.insert(command.end(), words.begin(), words.end());
        return outputOf(onDisplay(command));
    }
    /// Waits until the outline holds all of these lines, and gives what it lacks.
    std::string lacking(const std::vector<std::string>& lines) const {
        std::string outline;
        std::string lacks;
        waitFor(
            [&] {
                outline = read({"outline"});
                lacks.clear();
                for (const std::string& line : lines) {
                    if (outline.find(line + "\n") == std::string::npos)
                        lacks += line + "\n";
                }
                return lacks.empty();
            },
            std::chrono::seconds(20));
        return lacks.empty() ? "" : "lacks:\n" + lacks + "in:\n" + outline;
    }
    /// Enrolls a user with two methods, and takes the server away.
    void enroll() {
        const std::string users = path("users.json");
        TestSandbox::write(
            users,
            Value{{"ada@corp",
                   {{"secret", secret},
                    {"policy",
                     {{"MFA_NO_OF_FACTORS", 1},
                      {"ENABLED_AUTHS", {3, 14}},
                      {"MANDATORY_AUTHS", Value::array()},
                      {"OFFLINE_MFA_LIMIT_TYPE", 2},
                      {"OFFLINE_MFA_LIMIT_VALUE", 5}}},
                    {"authenticators",
                     {{"3", {{"name", "Phone"}, {"secret", secret}}},
                      {"14", {{"name", "Token"}, {"secret", secret}, {"serial", "HT-1"}}}}}}}}
                .dump());
        stage.startServer({"--users", users, "--token", "t=ada@corp"});
        stage.configure({{"OFFLINE_MFA", "true"},
                         {"INSTALLATION_KEY", AgentStage::encryptedKey("demo-installation-key")}});
        stage.run({"QUORLLoginAgent", "-action", "updateAgentStatus", "-status", "install"})
            ->wait();
        TestSandbox::write(path("token"), "t\n");
        ASSERT_EQ(
            stage.run({"keshctl", "offline", "sync"}, "/dev/null", "/dev/null", path("token"))
                ->wait(),
            0);
        stage.stopServer();
    }
    void requestOffline() {
        stage.request({{"OFFLINE_MFA", true}, {"USER_NAME", "ada"}, {"DOMAIN_NAME", "corp"}});
        ASSERT_TRUE(stage.waitForPage()) << stage.log();
    }

    /// Words that make a program the greeter account's; ours when empty.
    AgentStage::Words greeter;
    AgentStage stage;

  private:
    std::unique_ptr<Subprocess> bus_;

  protected:
    void endBus() { bus_.reset(); }
};

const std::string link = R"(push button "Reset Password / Unlock Account")";

TEST_F(ScreenReaderTest, EachViewIsReadAndOperatedByItsAccessibleActions) {
    enroll();
    startBus();
    stage.startAgent();
    EXPECT_EQ(lacking({R"(frame "Login help")", "  " + link}), "");
    requestOffline();
    EXPECT_EQ(lacking({R"(frame "Second Factor")", R"(  push button "Zoom" described 'Zoom')",
                       R"(  push button "Close" described 'Close')",
                       R"(      heading "How would you like to verify?" level 1)",
                       R"(        radio button "Phone" focused checked)",
                       R"(        radio button "Token")", R"(      push button "Next")",
                       R"(      push button "Cancel")", "  " + link + " disabled"}),
              "");
    EXPECT_EQ(read({"act", "push button", "Next"}), "done press\n");
    ASSERT_TRUE(stage.waitForPage());
    EXPECT_EQ(lacking({R"(      heading "Enter the code from Phone" level 1)",
                       R"(      push button "Continue")"}),
              "");
    stage.type("000000");
    EXPECT_EQ(read({"act", "push button", "Continue"}), "done press\n");
    const std::string alert = "That code did not work. Type the code that is shown right now.";
    EXPECT_EQ(lacking({"      notification \"" + alert + "\""}), "");
    // What closes the window takes the page along, before it has said that the action is done.
    read({"act", "push button", "Cancel"});
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE") << stage.log();
    stage.request({{"ERROR_MSG", "Closed for today"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... Closed"));
    const auto errorText = [this] {
        return read({"outline"}).find("Closed for today") != std::string::npos;
    };
    EXPECT_TRUE(waitFor(errorText)) << read({"outline"});
    read({"act", "push button", "Close"});
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE") << stage.log();
}

TEST_F(ScreenReaderTest, OrcaSpeaksOfTheFirstViewAndItsTimeAndNotOfTheLoad) {
    enroll();
    startBus();
    std::string session = TestSandbox::read(path("greeter/session"));
    session.pop_back();
    const std::string home = path("reader");
    fs::create_directories(home + "/.config/speech-dispatcher");
    // Of a machine without a sound device.
    TestSandbox::write(home + "/.config/speech-dispatcher/speechd.conf",
                       "AudioOutputMethod \"libao\"\n");
    TestSandbox::write(home + "/.libao", "default_driver=null\n");
    Subprocess orca({.command = {"env", "-u", "XDG_RUNTIME_DIR", "DISPLAY=" + stage.display(),
                                 "XAUTHORITY=" + path("authority").string(), "HOME=" + home,
                                 "DBUS_SESSION_BUS_ADDRESS=" + session, "orca", "--replace",
                                 "--debug-file", path("orca")},
                     .output = path("orca.out"),
                     .errors = path("orca.out")});
    const auto spoken = [this] {
        std::istringstream lines(TestSandbox::read(path("orca")));
        std::string words;
        const std::string mark = "SPEECH OUTPUT: '";
        for (std::string line; std::getline(lines, line);) {
            const auto at = line.find(mark);
            if (at != std::string::npos)
                words += line.substr(at + mark.size(),
                                     line.rfind('\'', line.rfind("{'")) - at - mark.size()) +
                         "\n";
        }
        return words;
    };
    const auto says = [&](const std::string& words) {
        return waitFor([&] { return spoken().find(words) != std::string::npos; });
    };
    ASSERT_TRUE(says("Screen reader on.")) << TestSandbox::read(path("orca.out"));
    stage.startAgent();
    requestOffline();
    EXPECT_TRUE(says("How would you like to verify? panel.\n")) << spoken();
    EXPECT_TRUE(says("Phone.\n")) << spoken();
    EXPECT_TRUE(says("Time left: 2 minutes")) << spoken();
    EXPECT_EQ(spoken().find("percent"), std::string::npos) << spoken();
}

TEST_F(ScreenReaderTest, ABusThatComesLaterIsJoinedOnceNobodyUsesTheWindow) {
    stage.configure();
    stage.startAgent();
    const pid_t number = stage.agent().pid();
    const std::string anew = "starts anew to be read by it";
    stage.request({{"ERROR_MSG", "Closed"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... Closed"));
    startBus();
    // Longer than the agent looks again for its window's end.
    EXPECT_FALSE(stage.waitForLog(anew, 1, std::chrono::milliseconds(1500)));
    stage.clickClose();
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE");
    ASSERT_TRUE(stage.waitForLog(anew));
    EXPECT_EQ(lacking({R"(frame "Login help")", "  " + link}), "");
    EXPECT_EQ(stage.agent().pid(), number);
    EXPECT_TRUE(stage.agent().running());

    // It outlives its bus, serves on, and however often the address changes, it does not start for
    // ever.
    endBus();
    stage.request({{"ERROR_MSG", "Later"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... Later"));
    stage.clickClose();
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE");
    for (int buses = 0; buses < 6; ++buses) {
        const std::size_t before = stage.logged("AgentMessagingService : Server running...");
        outputOf(onDisplay({"xprop", "-root", "-remove", "AT_SPI_BUS"}));
        startBus();
        stage.waitForLog("AgentMessagingService : Server running...", before + 1,
                         std::chrono::seconds(buses < 4 ? 20 : 2));
        endBus();
    }
    EXPECT_EQ(stage.logged(anew), 5U) << stage.log();
    EXPECT_EQ(stage.agent().stop(SIGTERM), 0);
}

TEST_F(ScreenReaderTest, TheAgentsAccountIsLetOnByTheRelayAndItsPageStaysInTheSandbox) {
    if (geteuid() != 0)
        GTEST_SKIP() << "makes processes of two other accounts: root only";
    enroll();
    greeter = {"setpriv", "--reuid=daemon", "--regid=daemon", "--clear-groups"};
    startBus();
    fs::permissions(path("greeter"), fs::perms::owner_all);
    const std::string socket = path("relay");
    Subprocess start({.command = onDisplay({QUORL_BINARY_DIR "/bin/quorl-a11y-relay", socket,
                                            path("relay.pid"), "daemon", "nobody"}),
                      .errors = path("relay.err")});
    ASSERT_EQ(start.wait(), 0) << TestSandbox::read(path("relay.err"));
    const std::string relay = TestSandbox::read(path("relay.pid"));
    const std::string daemon = "\t" + std::to_string(getpwnam("daemon")->pw_uid);
    std::string status;
    EXPECT_TRUE(waitFor([&] {
        status = TestSandbox::read("/proc/" + relay.substr(0, relay.size() - 1) + "/status");
        return status.find("\nUid:" + daemon + daemon + daemon + daemon + "\n") !=
                   std::string::npos &&
               status.find("\nNoNewPrivs:\t1") != std::string::npos;
    })) << status;

    stage.agentPrefix = {"env", "QUORL_ACCESSIBILITY_RELAY=" + socket};
    stage.account = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                     "--no-new-privs"};
    for (const char* folder : {"base", "run", "authority"})
        outputOf({"chown", "-R", "65534:65534", path(folder)});
    stage.startAgent();
    requestOffline();
    EXPECT_EQ(lacking({R"(frame "Second Factor")", R"(        radio button "Token")"}), "");
    int pages = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string environment = TestSandbox::read(entry.path() / "environ");
        if (TestSandbox::read(entry.path() / "comm") != "WebKitWebProces\n" ||
            environment.find("HOME=" + stage.sandbox.root().string()) == std::string::npos)
            continue;
        ++pages;
        EXPECT_NE(TestSandbox::read(entry.path() / "status").find("\nSeccomp:\t2"),
                  std::string::npos);
        for (const char* space : {"mnt", "net", "pid"})
            EXPECT_NE(fs::read_symlink(entry.path() / "ns" / space),
                      fs::read_symlink(std::string("/proc/self/ns/") + space));
        // The greeter's bus is nowhere in it, nor is the relay.
        EXPECT_FALSE(fs::exists(entry.path() / "root" / socket.substr(1)));
    }
    EXPECT_GE(pages, 1);
    EXPECT_EQ(stage.agent().stop(SIGTERM), 0);
    outputOf({"kill", relay.substr(0, relay.size() - 1)});
}

}  // namespace
}  // namespace quorl
