// The agent as a screen reader finds it: read and operated by an independent client of the
// accessibility bus, which is another account's where root can make it so.
#include "AgentStage.h"

#include <gtest/gtest.h>
#include <pwd.h>

#include <thread>

namespace quorl {
namespace {

using namespace test;
namespace fs = std::filesystem;

constexpr const char* secret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
constexpr const char* reader = QUORL_SOURCE_DIR "/tests/accessibility/reader.py";

class ScreenReaderTest : public testing::Test {
  protected:
    void SetUp() override { stage.startDisplay(); }
    /// Nothing that came with the bus outlives it.
    void TearDown() override {
        orca_.reset();
        bus_.reset();
        const auto left = [this] {
            return outputOf({"sh", "-c",
                             "grep -ls \"HOME=$1/\\(greeter\\|reader\\)\" /proc/[0-9]*/environ",
                             "sh", stage.sandbox.root()});
        };
        EXPECT_TRUE(waitFor([&] { return left().empty(); })) << left();
    }

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
        AgentStage::Words command = ownProcesses;
        command.insert(command.end(), greeter.begin(), greeter.end());
        for (const char* word :
             {"dbus-run-session", "--", "sh", "-c",
              "echo \"$DBUS_SESSION_BUS_ADDRESS\" >\"$HOME/session\" && exec "
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
    AgentStage::Words readerCommand(const AgentStage::Words& words) const {
        AgentStage::Words command = greeter;
        for (const std::string& word :
             {std::string("env"), "AT_SPI_BUS_ADDRESS=" + busAddress(), std::string(reader)})
            command.push_back(word);
        command.insert(command.end(), words.begin(), words.end());
        return onDisplay(command);
    }
    std::string read(const AgentStage::Words& words) const {
        AgentStage::Words command = {"timeout", "20"};
        const AgentStage::Words asked = readerCommand(words);
        command.insert(command.end(), asked.begin(), asked.end());
        return outputOf(command);
    }
    /// The screen reader that comes with the desktop, on a machine without a sound device; on a
    /// terminal, where it writes by the line.
    void startOrca() {
        std::string session = TestSandbox::read(path("greeter/session"));
        session.pop_back();
        const std::string home = path("reader");
        TestSandbox::write(home + "/.config/speech-dispatcher/speechd.conf",
                           "AudioOutputMethod \"libao\"\n");
        TestSandbox::write(home + "/.libao", "default_driver=null\n");
        AgentStage::Words command = ownProcesses;
        for (const std::string& word :
             {std::string("env"), std::string("-u"), std::string("XDG_RUNTIME_DIR"), "HOME=" + home,
              "DBUS_SESSION_BUS_ADDRESS=" + session, std::string("script"), std::string("-qfc"),
              std::string("orca --debug-file /dev/tty"), path("orca").string()})
            command.push_back(word);
        orca_ = std::make_unique<Subprocess>(Subprocess::Options{
            .command = onDisplay(command), .output = path("orca.out"), .errors = path("orca.out")});
        ASSERT_EQ(unsaid({"Screen reader on."}), "") << TestSandbox::read(path("orca.out"));
    }
    /// What it has spoken, a line each.
    std::string spoken() const {
        std::istringstream lines(TestSandbox::read(path("orca")));
        std::string words = "\n";
        const std::string mark = "SPEECH OUTPUT: '";
        for (std::string line; std::getline(lines, line);) {
            const auto at = line.find(mark);
            if (at != std::string::npos)
                words += line.substr(at + mark.size(),
                                     line.rfind('\'', line.rfind("{'")) - at - mark.size()) +
                         "\n";
        }
        return words;
    }
    /// Waits until it has spoken all of these, in whatever order, and gives what it has not.
    std::string unsaid(const std::vector<std::string>& lines) {
        std::string missing;
        waitFor([&] {
            const std::string words = spoken();
            missing.clear();
            for (const std::string& line : lines) {
                if (words.find("\n" + line + "\n") == std::string::npos)
                    missing += line + "\n";
            }
            return missing.empty();
        });
        return missing.empty() ? "" : "not said:\n" + missing + "but:" + spoken();
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
                         {"HELP_TEXT", "Service desk: 555 0100"},
                         {"INSTALLATION_KEY", underTheValueKey("demo-installation-key")}});
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

    /// Words that keep to a program whatever it starts, which ends with it.
    const AgentStage::Words ownProcesses = {
        "bwrap", "--dev-bind", "/", "/", "--proc", "/proc", "--unshare-pid", "--die-with-parent"};
    /// Words that make a program the greeter account's; ours when empty.
    AgentStage::Words greeter;
    AgentStage stage;

  private:
    std::unique_ptr<Subprocess> bus_;
    std::unique_ptr<Subprocess> orca_;

  protected:
    void endBus() { bus_.reset(); }
};

const std::string link = R"(push button "Reset Password / Unlock Account")";

TEST_F(ScreenReaderTest, EachViewIsReadSpokenAndOperated) {
    enroll();
    startBus();
    stage.startAgent();
    const std::string panel = "frame \"Login help\"\n  " + link + "\n";
    EXPECT_TRUE(waitFor([&] { return read({"outline"}) == panel; })) << read({"outline"});
    // As a person switches it on: when the process for the first page waits already.
    startOrca();
    Subprocess listener({.command = readerCommand({"listen"}), .output = path("events")});
    ASSERT_TRUE(waitFor([&] { return TestSandbox::read(path("events")) == "ready\n"; }));

    requestOffline();
    const std::string time = "notification Time left: 2 minutes.";
    EXPECT_EQ(unsaid({"Second Factor frame.", "How would you like to verify? panel.", "Phone.",
                      "selected radio button", time}),
              "");
    EXPECT_EQ(
        lacking({R"(frame "Second Factor")", R"(  push button "Maximize" described 'Maximize')",
                 R"(  push button "Close" described 'Close')",
                 R"(      heading "How would you like to verify?" level 1)",
                 R"(        radio button "Phone" focused checked)",
                 R"(        radio button "Token")", R"(      push button "Next")",
                 R"(      push button "Cancel")", "  " + link + " disabled"}),
        "");
    EXPECT_EQ(read({"act", "push button", "Next"}), "done press\n");
    ASSERT_TRUE(stage.waitForPage());
    const std::string limit = "notification Offline sign-ins left 5.";
    EXPECT_EQ(unsaid({"notification Enter the code from Phone. ada (corp). Open the app and type "
                      "the code that it shows right now. One-time code.",
                      limit}),
              "");
    EXPECT_EQ(lacking({R"(      heading "Enter the code from Phone" level 1)",
                       R"(      push button "Continue")"}),
              "");
    stage.type("918273");
    EXPECT_EQ(lacking({R"(      password text "One-time code" text '••••••' focused)"}), "");
    EXPECT_EQ(read({"act", "push button", "Continue"}), "done press\n");
    const std::string alert =
        "notification \"That code did not work. Type the code that is shown right now.\"";
    EXPECT_EQ(lacking({"      " + alert}), "");
    EXPECT_EQ(unsaid({"notification That code did not work. Type the code that is shown right "
                      "now."}),
              "");
    // What closes the window takes the page along, before it has said that the action is done.
    read({"act", "push button", "Cancel"});
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE") << stage.log();
    const std::string words = spoken();
    for (const std::string& once : {time, limit})
        EXPECT_EQ(occurrences(words, once), 1U) << words;
    for (const char* never : {"percent", "grayed", "\n9 ", "\n1 ", "\n8 ", "918273"})
        EXPECT_EQ(occurrences(words, never), 0U) << words;

    stage.request({{"ERROR_MSG", "Closed for <b>today</b>"}});
    EXPECT_EQ(unsaid({"notification The sign-in could not be completed. Closed for today. Close "
                      "this window and sign in again. Help. Service desk: 555 0100.",
                      "Close push button."}),
              "");
    read({"act", "push button", "Close"});
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE") << stage.log();

    // Each in its turn, and at last the window goes.
    const std::string window = "frame \"Second Factor\"";
    std::string missing;
    EXPECT_TRUE(waitFor([&] {
        const std::string events = TestSandbox::read(path("events"));
        std::size_t at = 0;
        for (const std::string& event :
             {"comes " + window, std::string("focus radio button \"Phone\""),
              std::string("focus password text"), "says " + alert, "goes " + window,
              "comes " + window, std::string("focus push button \"Close\""), "goes " + window}) {
            at = events.find("\n" + event, at);
            missing = event + " in its turn in:\n" + events;
            if (at == std::string::npos)
                return false;
            ++at;
        }
        return true;
    })) << missing;
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
    // The relay has ended by now, and the new start is not up yet.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    stage.request({{"ERROR_MSG", "Meanwhile"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... Meanwhile"));
    stage.clickClose();
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "FAILURE");
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
