// The whole agent with the server: real channel, real window, real TLS, typed keys.
#include "AgentStage.h"
#include "PropertyList.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quorl {
namespace {

using namespace test;

constexpr const char* secret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
const Value failure = {{"MFA_AUTH_RESULT", "FAILURE"}};

class OnlineFlowTest : public testing::Test {
  protected:
    /// A registered agent that runs beside its server.
    void start() {
        stage.startServer();
        stage.startDisplay();
        stage.configure();
        stage.startAgent();
    }
    void requestPage(const std::string& path) {
        stage.request({{"MFA_REQUEST_URL", path}, {"USER_NAME", "alice"}});
    }

    AgentStage stage;
};

TEST_F(OnlineFlowTest, RegistersThenAnswersWithWhatThePageSaysAboutATypedCode) {
    stage.startServer();
    stage.configure({{"INSTALLATION_KEY", underTheValueKey("demo-installation-key")}});
    const std::string out = (stage.sandbox.root() / "action.out").string();
    const auto action = [&](const std::string& status) {
        return stage
            .run({"QUORLLoginAgent", "-action", "updateAgentStatus", "-status", status}, out, out)
            ->wait();
    };
    EXPECT_EQ(action("install"), 0);
    const Value registered = readPropertyListFile(stage.sandbox.support() / "config.plist").value();
    EXPECT_EQ(registered["INSTALLATION_KEY"], "");
    EXPECT_NE(registered["AGENT_ID"], "");
    EXPECT_NE(registered["ACCESS_KEY"], "");
    EXPECT_EQ(action("install"), 0);
    EXPECT_EQ(stage.serverRequests().size(), 1U) << "a registered agent asks for nothing";
    EXPECT_EQ(action("uninstall"), 0);
    EXPECT_EQ(TestSandbox::read(out), "") << "an action is silent";

    stage.startDisplay();
    stage.startAgent();
    requestPage("/mfa/verify?USER_NAME=alice&DOMAIN_NAME=EXAMPLE&enroll=1");
    ASSERT_TRUE(stage.waitForPage());
    stage.type(AgentStage::code(secret));
    stage.press("Return");
    const Value answer = stage.answer();
    EXPECT_EQ(stringValue(answer, "MFA_AUTH_RESULT"), "SUCCESS") << answer << stage.log();
    EXPECT_FALSE(stringValue(answer, "KEY").value_or("").empty());
    EXPECT_FALSE(stringValue(answer, "OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN").value_or("").empty());
    const auto requests = stage.serverRequests();
    EXPECT_TRUE(std::ranges::any_of(requests, [](const Value& request) {
        return request["path"] == "/RestAPI/logonagent/mfa/addOfflineEnrollment";
    })) << "the page enrolls with the headers that the agent signed for it";
    EXPECT_EQ(stage.logged("getOfflineEnrollmentAPIAuthzHeader: script successfully executed"), 1U);

    EXPECT_EQ(modeOf(stage.sandbox.support() / "VantorixClient.log"), 0600U);
    EXPECT_EQ(stage.agent().stop(SIGTERM), 0);
    EXPECT_EQ(stage.logged("QUORLLoginAgent Application terminated"), 1U);
}

TEST_F(OnlineFlowTest, AnErrorTextStaysOnScreenUntilTheWindowIsClosed) {
    start();
    requestPage(
        "/page/"
        "post?message={\"SYSTEM_MFA_RESULT\":\"FAILURE\",\"SYSTEM_MFA_ERROR_MSG\":\"Locked\"}");
    ASSERT_TRUE(stage.waitForLog("showError going to show... Locked")) << stage.log();
    EXPECT_EQ(stage.logged("sendMFAResponse :: initiated"), 0U);
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
}

TEST_F(OnlineFlowTest, AnErrorTextNeverAnswersTheRequest) {
    start();
    const std::string post =
        "window.webkit.messageHandlers.MACLoginAgent.postMessage("
        "`{\"SYSTEM_MFA_RESULT\":\"SUCCESS\"}`)";
    stage.request({{"ERROR_MSG", "<img src=x onerror=" + post + ">"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... <img")) << stage.log();
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
    stage.request({{"ERROR_MSG", "';" + post + ";'"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... ';"));
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
    EXPECT_EQ(stage.logged("a message of the blank page is dropped"), 0U) << "something ran";
}

TEST_F(OnlineFlowTest, TheErrorPageWorksByKeysAndTriesAgainWhenAsked) {
    start();
    const std::string port = stage.port();
    stage.stopServer();
    const struct {
        const char* keys;
        bool retries;
    } cases[] = {
        {"Return", true},
        {"space", true},
        {"Tab Tab Tab Tab Return", true},
        {"Tab Return", false},
        {"Tab Tab Tab space", false},
        {"shift+Tab Return", false},
        {"Escape", false},
    };
    const std::string shown = "showError going to show...";
    for (const auto& [keys, retries] : cases) {
        SCOPED_TRACE(keys);
        const std::size_t before = stage.logged(shown);
        requestPage("/mfa/verify?USER_NAME=alice&DOMAIN_NAME=EXAMPLE");
        ASSERT_TRUE(stage.waitForLog(shown, before + 1)) << stage.log();
        // The outline of the button that has the focus.
        ASSERT_TRUE(waitFor([&] { return stage.shows("\x2f\x6f\xd0"); }));
        stage.pressInTurn(keys);
        if (retries) {
            EXPECT_TRUE(stage.waitForLog(shown, before + 2)) << stage.log();
            stage.clickClose();
        }
        EXPECT_EQ(stage.answer(), failure);
    }
    const std::size_t before = stage.logged(shown);
    requestPage("/mfa/verify?USER_NAME=alice&DOMAIN_NAME=EXAMPLE");
    ASSERT_TRUE(stage.waitForLog(shown, before + 1));
    stage.startServer({"--port", port});
    stage.press("Return");
    ASSERT_TRUE(stage.waitForPage()) << stage.log();
    stage.type(AgentStage::code(secret));
    stage.press("Return");
    EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), "SUCCESS") << stage.log();
}

TEST_F(OnlineFlowTest, APageThatTakesLongIsShownToComeAndAfterFiveSecondsSaidTo) {
    start();
    const auto begin = std::chrono::steady_clock::now();
    const auto elapsed = [begin] { return std::chrono::steady_clock::now() - begin; };
    requestPage("/page/slow?seconds=8");
    const auto bar = [&] { return stage.shows("\x6e\xa8\xff", "4x2+194+150"); };
    const auto words = [&] { return stage.shows("\x1f\x2a\x38", "4x4+200+160"); };
    EXPECT_TRUE(waitFor(bar));
    EXPECT_LT(elapsed(), std::chrono::seconds(4)) << "before there is anything of the page";
    EXPECT_FALSE(words());
    EXPECT_TRUE(waitFor(words));
    EXPECT_GT(elapsed(), std::chrono::seconds(5));
    EXPECT_LT(elapsed(), std::chrono::seconds(8));
    ASSERT_TRUE(stage.waitForPage()) << stage.log();
    EXPECT_TRUE(waitFor([&] { return !words(); }));
}

TEST(AgentStart, WithoutADisplaySaysSoInOneLine) {
    AgentStage stage;
    const std::string errors = (stage.sandbox.root() / "errors").string();
    EXPECT_EQ(stage.run({"QUORLLoginAgent"}, errors, errors)->wait(), 1);
    const std::string said = TestSandbox::read(errors);
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    EXPECT_NE(said.find("display"), std::string::npos) << said;
}

TEST(AgentStart, WithoutASupportDirectoryRequestsAreServedAllTheSame) {
    AgentStage stage;
    stage.startDisplay();
    std::filesystem::remove_all(stage.sandbox.support());
    const std::string errors = (stage.sandbox.root() / "errors").string();
    const auto agent = stage.run({"QUORLLoginAgent"}, "/dev/null", errors);
    ASSERT_TRUE(waitFor([&] {
        return std::filesystem::is_socket(stage.sandbox.root() /
                                          "run/com.tav.quorl.QUORLLoginAgent");
    }));
    const auto second = stage.run({"QUORLLoginAgent"}, "/dev/null", errors + "2");
    stage.request({{"MFA_REQUEST_URL", "/mfa"}});
    EXPECT_TRUE(waitFor([&] {
        stage.clickClose();
        return stage.answer(std::chrono::seconds(1)) == failure;
    }));
    EXPECT_NE(TestSandbox::read(errors).find("VantorixClient.log"), std::string::npos);
    EXPECT_TRUE(second->running()) << "a second agent lives without the name";
    EXPECT_EQ(agent->stop(SIGTERM), 0) << TestSandbox::read(errors);
}

}  // namespace
}  // namespace quorl
