#include "KeshctlStage.h"
#include "TestServer.h"

#include <gmock/gmock.h>

namespace quorl::test {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string installationKey = "demo-installation-key";
const std::string accessKey(64, 'c');

class SetupTest : public testing::Test, public KeshctlStage {
  protected:
    void SetUp() override { trustTestAuthority(); }
    Outcome setup(int port, const std::vector<std::string>& more = {},
                  const std::string& key = installationKey) {
        std::vector<std::string> words = {"setup",  "--server",           "localhost",
                                          "--port", std::to_string(port), "--installation-key-file",
                                          "-"};
        words.insert(words.end(), more.begin(), more.end());
        return keshctl(words, key + "\n");
    }
    // By an independent reader of property lists.
    std::string setting(const std::string& name) {
        return outputOf({"python3", "-c",
                         "import plistlib,sys;"
                         "print(plistlib.load(open(sys.argv[1],'rb')).get(sys.argv[2],''),end='')",
                         (sandbox.support() / "config.plist").string(), name});
    }
};

TEST_F(SetupTest, RegistersAndChangesWhatDiffersLater) {
    const TestServer server("server", {"--access-key", accessKey});
    const Outcome first = setup(server.port());
    ASSERT_EQ(first.status, 0) << first.said;
    EXPECT_THAT(first.said, HasSubstr("registered as agent 1001. Next: "));
    EXPECT_EQ(setting("AGENT_ID") + setting("LOGIN_MFA") + setting("INSTALLATION_KEY"), "1001true");
    const std::string stored = setting("ACCESS_KEY");
    EXPECT_EQ(stored, underTheValueKey(accessKey));

    const Outcome again = keshctl({"setup", "--set", "LOCALE_ID=de"});
    EXPECT_EQ(again.status, 0) << again.said;
    EXPECT_EQ(setting("LOCALE_ID") + setting("ACCESS_KEY"), "de" + stored);

    const Outcome renewed = setup(server.port(), {"--renew"});
    EXPECT_EQ(renewed.status, 0) << renewed.said;
    const auto registrations = [&] {
        int count = 0;
        for (const auto& request : server.requests())
            count += request["path"] == "/RestAPI/logonagent/getAccessKey";
        return count;
    };
    EXPECT_EQ(registrations(), 2);

    EXPECT_EQ(keshctl({"setup", "--report-removal"}).status, 0);
    const auto last = server.requests().back();
    EXPECT_EQ(last["path"], "/RestAPI/logonagent/updateStatus");
    EXPECT_THAT(last["body"].get<std::string>(), HasSubstr("status=uninstall"));
    for (const Outcome& outcome : {first, again, renewed})
        for (const std::string& key : {installationKey, accessKey, stored})
            EXPECT_THAT(outcome.said, Not(HasSubstr(key)));
    EXPECT_FALSE(std::filesystem::exists(sandbox.support() / ".setup"));
}

// The one sentence that names what failed, and nothing changed; also on a machine that is set up.
TEST_F(SetupTest, LeavesTheFormerConfigurationWholeWhenItFails) {
    const TestServer server("server", {"--access-key", accessKey}), stranger("self-signed");
    ASSERT_EQ(setup(server.port()).status, 0);
    const std::string before = config();
    const std::string port = std::to_string(server.port());
    const struct {
        std::vector<std::string> words;
        std::string input;
        int status;
        std::string says;
    } cases[] = {
        {{"--server", "nowhere.invalid", "--port", port}, "", 1, "does not answer"},
        {{"--server", "a host", "--port", port}, "", 2, "--server must be"},
        {{"--port", "0"}, "", 2, "--port a number"},
        {{"--port", "1"}, "", 1, "does not answer"},
        {{"--port", std::to_string(stranger.port())}, "", 1, "is not trusted here"},
        {{"--renew"}, "", 2, "needs an installation key"},
        {{"--renew", "--installation-key-file", "-"}, "canary-key\n", 1, "installation key may be"},
        {{"--renew", "--installation-key-file", "-"}, "\n", 1, "holds no key"},
        {{"--installation-key-file", "/nonexistent/key"}, "", 1, "cannot be read"},
        {{"--value-key-file", "-"}, "12", 1, "64 hexadecimal digits"},
        {{"--value-key-file", "-"}, std::string(64, 'a'), 2, "add --renew"},
        {{"--set", "ACCESS_KEY=canary"}, "", 1, "is no setting"},
        {{"--set", "NO_SUCH=1"}, "", 1, "is no setting"},
        {{"--make-value-key"}, "", 2, "is registered under the present value key"},
        {{"--serve", "x"}, "", 64, "is no option"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> words = {"setup"};
        words.insert(words.end(), c.words.begin(), c.words.end());
        const Outcome outcome = keshctl(words, c.input);
        EXPECT_EQ(outcome.status, c.status) << c.says << outcome.said;
        EXPECT_THAT(outcome.said, HasSubstr(c.says));
        EXPECT_THAT(outcome.said, Not(HasSubstr("canary-key")));
        EXPECT_EQ(config(), before) << c.says;
    }
}

TEST_F(SetupTest, GoesOnWithWhatAnInterruptedSetupObtained) {
    const auto left = sandbox.support() / ".setup" / "QUORLLoginAgent";
    {
        const TestServer server("server", {"--access-key", accessKey});
        ASSERT_EQ(setup(server.port()).status, 0);
        // As if it had been killed before its last step.
        std::filesystem::create_directories(left);
        std::filesystem::rename(sandbox.support() / "config.plist", left / "config.plist");
    }
    const TestServer server("server", {"--access-key", accessKey, "--installation-key", "spent"});
    const Outcome elsewhere = setup(server.port());
    EXPECT_EQ(elsewhere.status, 1) << "another port is another server";

    std::filesystem::create_directories(left);
    TestSandbox::write(
        left / "config.plist",
        outputOf({"python3", "-c",
                  "import plistlib,sys;print(plistlib.dumps({'SERVERNAME':'localhost',"
                  "'PORTNUMBER':sys.argv[1],'AGENT_ID':'1001','ACCESS_KEY':"
                  "sys.argv[2]}).decode())",
                  std::to_string(server.port()), underTheValueKey(accessKey)}));
    const Outcome goesOn = setup(server.port());
    EXPECT_EQ(goesOn.status, 0) << goesOn.said;
    EXPECT_EQ(setting("AGENT_ID"), "1001");
}

TEST_F(SetupTest, MakesAValueKeyAndReportsNoRemovalOfAStranger) {
    const Outcome made = keshctl({"setup", "--make-value-key"});
    EXPECT_EQ(made.status, 0) << made.said;
    const std::string key = TestSandbox::read(sandbox.support() / "value.key");
    ASSERT_EQ(key.size(), 65);
    EXPECT_EQ(key.find_first_not_of("0123456789abcdef"), 64);
    EXPECT_THAT(made.said, Not(HasSubstr(key.substr(0, 64))));
    EXPECT_EQ(keshctl({"setup", "--make-value-key"}).status, 2);

    const TestServer server("server", {"--value-key", key.substr(0, 64)});
    EXPECT_EQ(keshctl({"setup", "--report-removal"}).status, 1);
    EXPECT_TRUE(server.requests().empty());
    EXPECT_EQ(setup(server.port()).status, 0);
}

}  // namespace
}  // namespace quorl::test
