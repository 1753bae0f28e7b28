// The whole agent without the server: enrollment by the real sync, then typed codes.
#include "AgentStage.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

using namespace test;

constexpr const char* appSecret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
constexpr const char* tokenSecret = "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ";
const Value success = {{"MFA_AUTH_RESULT", "SUCCESS"}};
const Value failure = {{"MFA_AUTH_RESULT", "FAILURE"}};

class OfflineFlowTest : public testing::Test {
  protected:
    /// Enrolls one user through the server, stops it, and starts the agent.
    void start(const Value& policy, const std::string& user = "ada@corp",
               const std::string& displayName = "App") {
        const std::string users = (stage.sandbox.root() / "users.json").string();
        TestSandbox::write(users, Value{{user,
                                         {{"secret", appSecret},
                                          {"policy", policy},
                                          {"authenticators",
                                           {{"3", {{"name", displayName}, {"secret", appSecret}}},
                                            {"14",
                                             {{"name", "Token"},
                                              {"secret", tokenSecret},
                                              {"algorithm", "SHA256"},
                                              {"serial", "HT-1"}}}}}}}}
                                      .dump());
        stage.startServer({"--users", users, "--token", "t=" + user});
        stage.configure({{"OFFLINE_MFA", "true"},
                         {"INSTALLATION_KEY", underTheValueKey("demo-installation-key")}});
        ASSERT_EQ(
            stage.run({"QUORLLoginAgent", "-action", "updateAgentStatus", "-status", "install"})
                ->wait(),
            0);
        const std::string token = (stage.sandbox.root() / "token").string();
        TestSandbox::write(token, "t\n");
        ASSERT_EQ(
            stage.run({"keshctl", "offline", "sync"}, "/dev/null", "/dev/null", token)->wait(), 0);
        stage.stopServer();
        stage.startDisplay();
        stage.startAgent();
    }
    static Value policy(int factors, const Value& mandatory = Value::array(),
                        const Value& enabled = {3, 14}) {
        return {{"MFA_NO_OF_FACTORS", factors},
                {"ENABLED_AUTHS", enabled},
                {"MANDATORY_AUTHS", mandatory},
                {"OFFLINE_MFA_LIMIT_TYPE", 0},
                {"OFFLINE_MFA_LIMIT_VALUE", 0}};
    }
    void request(const std::string& user = "ada", const std::string& domain = "corp") {
        stage.request({{"OFFLINE_MFA", true}, {"USER_NAME", user}, {"DOMAIN_NAME", domain}});
        ASSERT_TRUE(stage.waitForPage()) << stage.log();
    }
    void enter(const std::string& code) {
        stage.type(code);
        stage.press("Return");
    }
    void enterApp() { enter(AgentStage::code(appSecret)); }
    void enterToken() { enter(AgentStage::code(tokenSecret, "sha256")); }

    AgentStage stage;
};

TEST_F(OfflineFlowTest, OneFactorForgivesWrongAndEmptyCodesAndTakesTheRightOne) {
    start(policy(1, Value::array(), {3}));
    request();
    enter("000000");
    ASSERT_TRUE(stage.waitForLog("MFAController::OnButtonOK : Entered OTP is invalid"));
    stage.press("Return");
    ASSERT_TRUE(stage.waitForLog("MFAController::OnButtonOK : Entered OTP is empty"));
    enterApp();
    EXPECT_EQ(stage.answer(), success) << stage.log();

    // A verified user is remembered: closing a later online window answers "SUCCESS" as well.
    stage.request({{"ERROR_MSG", "Closed"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... Closed"));
    stage.clickClose();
    EXPECT_EQ(stage.answer(), success);
    // A new offline request forgets it.
    request();
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure) << stage.log();
}

// The sanitizers keep what is freed.
#ifndef __SANITIZE_ADDRESS__
TEST_F(OfflineFlowTest, ATypedCodeIsGoneFromMemoryAfterTheAnswer) {
    if (geteuid() != 0)
        GTEST_SKIP() << "looks into other processes: root only";
    start(policy(1, Value::array(), {3}));
    request();
    const std::string code = "729041";
    stage.type(code);
    EXPECT_TRUE(waitFor([&] { return !stage.copiesInMemory(code).empty(); }))
        << "the search finds nothing";
    stage.press("Return");
    ASSERT_TRUE(stage.waitForLog("MFAController::OnButtonOK : Entered OTP is invalid"));
    enterApp();
    EXPECT_EQ(stage.answer(), success) << stage.log();
    // The engine's heap keeps two to five of the page's message until its collector runs; with
    // those of our own it would be sixteen.
    const std::string engine = "QUORLLoginAgent ";
    std::string left;
    const auto gone = [&] {
        left = stage.copiesInMemory(code);
        return left.empty() || (left.starts_with(engine) && left.size() == engine.size() + 2 &&
                                left[engine.size()] <= '6');
    };
    EXPECT_TRUE(waitFor(gone, std::chrono::seconds(5))) << left;
    EXPECT_EQ(stage.logged(code), 0U);
}
#endif

TEST_F(OfflineFlowTest, TheChosenMethodIsAskedFor) {
    start(policy(1));
    request();
    stage.press("Down");
    stage.press("Return");
    ASSERT_TRUE(stage.waitForLog("onButtonChoose :: Selected auth value: 14")) << stage.log();
    ASSERT_TRUE(stage.waitForPage());
    enterToken();
    EXPECT_EQ(stage.answer(), success) << stage.log();
}

TEST_F(OfflineFlowTest, KeysGoRoundTheWindowAndComeBackToTheCode) {
    start(policy(1, Value::array(), {3}));
    // The field, two buttons, the strip's two, and the field again; %CODE% is typed.
    const struct {
        const char* keys;
        bool verifies;
    } cases[] = {
        {"%CODE% Return", true},
        {"%CODE% Tab Return", true},
        {"Tab Tab Tab Tab Tab %CODE% Return", true},
        {"shift+Tab shift+Tab shift+Tab shift+Tab shift+Tab %CODE% Return", true},
        // An alert leaves the focus where it is.
        {"0 Return %CODE% Return", true},
        {"Tab Tab space", false},
        {"Tab Tab Tab Tab Return", false},
        {"shift+Tab space", false},
    };
    for (const auto& [keys, verifies] : cases) {
        SCOPED_TRACE(keys);
        request();
        std::string digits;
        for (const char digit : AgentStage::code(appSecret))
            digits += std::string(1, digit) + ' ';
        std::string pressed = keys;
        if (const auto at = pressed.find("%CODE%"); at != pressed.npos)
            pressed.replace(at, 6, digits);
        stage.pressInTurn(pressed);
        EXPECT_EQ(stringValue(stage.answer(), "MFA_AUTH_RESULT"), verifies ? "SUCCESS" : "FAILURE")
            << stage.log();
    }
}

TEST_F(OfflineFlowTest, APastedCodeIsTakenHoweverItIsWrittenAndSentOnce) {
    start(policy(1, Value::array(), {3}));
    const std::string sent = "onButtonOK :: Received ButtonOk action";
    for (const char* form : {"%1 %2\n", "%1-%2", " %1%2\r\n\r\n"}) {
        SCOPED_TRACE(form);
        request();
        const std::string code = AgentStage::code(appSecret);
        std::string text = form;
        text.replace(text.find("%1"), 2, code.substr(0, 3));
        text.replace(text.find("%2"), 2, code.substr(3));
        stage.copy(text);
        const std::size_t before = stage.logged(sent);
        stage.pressInTurn("ctrl+v Return");
        EXPECT_EQ(stage.answer(), success) << stage.log();
        EXPECT_EQ(stage.logged(sent), before + 1);
    }
}

TEST_F(OfflineFlowTest, NamesThatHoldMarkupOrQuotesNeverRun) {
    // Whatever ran would post a result: a script, the handler of an image that fails, the rest of
    // the agent's own script behind a quote.
    const std::string post =
        "window.webkit.messageHandlers.MACLoginAgent.postMessage(`{\"SYSTEM_MFA_KEY\":\"ran\"}`)";
    const std::string user = "<img src=x onerror=" + post + "><script>" + post + "</script>";
    const std::string domain = "';" + post + ";//";
    start(policy(1, Value::array(), {3}), user + "@" + domain, "';" + post + ";'");
    request(user, domain);
    enter("1");
    ASSERT_TRUE(stage.waitForLog("Entered OTP is invalid")) << stage.log();
    EXPECT_EQ(stage.logged("HtmlUtil::executeScript: script execution failed with error"), 2U);
    enterApp();
    EXPECT_EQ(stage.answer(), success) << stage.log();
    EXPECT_EQ(stage.logged("sendMFAResult : Received message"), 0U) << stage.log();
}

using SlowOfflineFlowTest = OfflineFlowTest;

TEST_F(SlowOfflineFlowTest, OnePageTakesAFewCodesUntilItRunsOutAtThe121stSecond) {
    start(policy(1, Value::array(), {3}));
    request();
    // Keys without a pause; once the page has run out, Return is the way out.
    const auto shown = std::chrono::steady_clock::now();
    const auto elapsed = [shown] { return std::chrono::steady_clock::now() - shown; };
    Value answer;
    while (answer.is_null() && elapsed() < std::chrono::seconds(140)) {
        enter("000000");
        answer = stage.answer(std::chrono::seconds(0));
    }
    EXPECT_EQ(stringValue(answer, "MFA_AUTH_RESULT"), "FAILURE") << stage.log();
    EXPECT_GT(elapsed(), std::chrono::seconds(119));
    EXPECT_LT(elapsed(), std::chrono::seconds(127));
    const std::size_t codes = stage.logged("Entered OTP is invalid");
    EXPECT_GE(codes, 8U);
    EXPECT_LE(codes, 12U);
}

}  // namespace
}  // namespace quorl
