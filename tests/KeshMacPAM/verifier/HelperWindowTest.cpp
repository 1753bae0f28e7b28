// The helper as a program at a login screen: which page is asked for, which answer counts, what
// follows when agent, server or host go.
#include "HelperStage.h"

#include <gmock/gmock.h>

#include <regex>

namespace quorl::test {
namespace {

using namespace std::chrono;
using testing::HasSubstr;
using verifier::Verdict;

class HelperWindowTest : public HelperStage {
  protected:
    static std::string field(const Value& request, const std::string& name) {
        const std::string form = request.value("POST_DATA", "");
        std::smatch found;
        return std::regex_search(form, found, std::regex(name + "=([^&]*)")) ? found[1].str() : "";
    }
    /// The key that a server with this machine's access key hands over, as openssl computes it.
    static std::string keyFor(const Value& request) {
        return outputOf({"sh", "-c",
                         "printf '%s\\n%s\\n%s' \"$1\" \"$2\" \"$3\" | openssl dgst "
                         "-sha256 -hmac \"$4\" -r",
                         "sh", field(request, "NONCE"), field(request, "USER_NAME"),
                         field(request, "DOMAIN_NAME"), accessKey})
            .substr(0, 64);
    }
    void configureFor(const TestServer& server, Settings settings = {}) {
        settings["PORTNUMBER"] = std::to_string(server.port());
        settings["RESTRICT_BADCERT"] = "true";
        configure(settings);
    }
    static Value success() { return {{"MFA_AUTH_RESULT", "SUCCESS"}}; }
    static Value failure() { return {{"MFA_AUTH_RESULT", "FAILURE"}}; }
};

TEST_F(HelperWindowTest, AsksForASignedPageAndTrustsAProvenSuccessAlone) {
    TestSandbox::write(sandbox_.root() / "users.json",
                       Value{{"dora@example.com",
                              {{"secret", secret},
                               {"enrolled", true},
                               {"policy", record()["POLICY_DATA"]},
                               {"authenticators", {{"3", {{"name", "New"}, {"secret", secret}}}}}}}}
                           .dump());
    const TestServer server("server",
                            {"--access-key", accessKey, "--signed-pages", "--users",
                             sandbox_.root() / "users.json", "--token", "tok=dora@example.com"});
    configureFor(server);
    const struct {
        const char* what;
        const char* result;
        std::optional<std::string> key;  ///< "signed": as the server signs it
        verifier::KeyRule rule;
        Verdict verdict;
    } rows[] = {
        {"no key", "SUCCESS", {}, verifier::KeyRule::Present, Verdict::Denied},
        {"any key", "SUCCESS", "", verifier::KeyRule::Present, Verdict::Granted},
        {"unsigned", "SUCCESS", std::string(64, '0'), verifier::KeyRule::Signed, Verdict::Denied},
        {"failure", "FAILURE", "signed", verifier::KeyRule::Signed, Verdict::Denied},
        {"signed", "SUCCESS", "signed", verifier::KeyRule::Signed, Verdict::Granted},
    };
    enroll(record(1, 10, 7));
    for (const auto& row : rows) {
        FakeAgent agent(runtimeDir(), [&](const Value& request) -> std::optional<Value> {
            if (!request.contains("MFA_REQUEST_URL"))
                return failure();
            Value answer = {{"MFA_AUTH_RESULT", row.result}};
            if (row.key)
                answer["KEY"] = row.key == "signed" ? keyFor(request) : *row.key;
            if (row.key == "signed")
                answer["OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN"] = "tok";
            return answer;
        });
        verifier::Start start = lightdm();
        start.key = row.rule;
        const auto module = signIn(start);
        EXPECT_EQ(module->verdict, row.verdict) << row.what << "\n" << log();
        EXPECT_TRUE(module->helper().wait(seconds(10)));
        const Value asked = agent.requests().at(0);
        EXPECT_EQ(asked["MFA_REQUEST_URL"], "/mfa/verify");
        EXPECT_EQ(field(asked, "USER_NAME") + field(asked, "DOMAIN_NAME"), "doraexample.com");
        EXPECT_EQ(field(asked, "NONCE").size(), 64U);
        // The real server takes signature and nonce, once.
        const auto page = [&] {
            return outputOf(
                {"curl", "-sk", "--data", asked["POST_DATA"].get<std::string>(), "-H",
                 "idm-date: " + asked["REQUEST_HEADERS"]["idm-date"].get<std::string>(), "-H",
                 "Authorization: " + asked["REQUEST_HEADERS"]["Authorization"].get<std::string>(),
                 server.url("/mfa/verify")});
        };
        EXPECT_THAT(page(), HasSubstr("data-sign-in"));
        EXPECT_EQ(page().find("data-sign-in"), std::string::npos);
        EXPECT_EQ(attempts(), row.verdict == Verdict::Granted ? 0 : 7) << row.what;
        if (row.verdict == Verdict::Granted)
            enroll(record(1, 10, 7));
    }
    EXPECT_THAT(log(), HasSubstr("getEnrollmentData: Sync user offline data - dora@example.com"));
}

TEST_F(HelperWindowTest, CountsTheOfflinePage) {
    const struct {
        milliseconds shown;
        bool right;
        int wrong;
    } rows[] = {{0ms, false, 0}, {3200ms, false, 2}, {0ms, true, 0}};
    for (const auto& row : rows) {
        FakeAgent agent(runtimeDir(), [&](const Value& request) -> std::optional<Value> {
            EXPECT_EQ(request, Value({{"OFFLINE_MFA", true},
                                      {"USER_NAME", "dora"},
                                      {"DOMAIN_NAME", "example.com"}}));
            std::this_thread::sleep_for(row.shown);
            return row.right ? success() : failure();
        });
        const auto module = signIn(lightdm());
        EXPECT_EQ(module->verdict, row.right ? Verdict::Granted : Verdict::Denied) << log();
        EXPECT_TRUE(module->asked.empty());
        EXPECT_EQ(guard().wrongInRow, row.wrong);
        EXPECT_EQ(attempts(), row.right ? 1 : 0);
    }
    // Whatever code was typed there is used up in the conversation.
    EXPECT_THAT(signIn(sshd(), {{code()}})->asked.at(1), HasSubstr("used already"));
}

TEST_F(HelperWindowTest, GoesOnWithoutAnAgentThatFails) {
    const struct {
        const char* what;
        std::optional<Value> answer;
    } rows[] = {{"dies in the middle", std::nullopt}, {"sends no archive", Value("garbage")}};
    int second = -30;
    for (const auto& row : rows) {
        FakeAgent agent(runtimeDir(), [&](const Value&) { return row.answer; });
        const auto module = signIn(lightdm(), {{code(second += 30)}});
        EXPECT_EQ(module->verdict, Verdict::Granted) << row.what << log();
        EXPECT_THAT(module->lastAsked(), HasSubstr("Code from Phone"));
    }
    verifier::Start windowAlone = lightdm();
    windowAlone.mode = verifier::Mode::Window;
    const auto none = signIn(windowAlone);
    EXPECT_EQ(none->verdict, Verdict::Denied);
    EXPECT_EQ(none->lastAsked(),
              "The verification window is not running. Please contact your administrator. Press "
              "Return.");
}

TEST_F(HelperWindowTest, ShowsItsDenialsInTheWindow) {
    enroll(record(1, 1, 1));
    FakeAgent agent(runtimeDir(), [](const Value&) { return failure(); });
    const auto module = signIn(lightdm());
    EXPECT_EQ(module->verdict, Verdict::DeniedMaxTries);
    EXPECT_TRUE(module->asked.empty());
    EXPECT_EQ(agent.requests().at(0), Value({{"MFA_ERROR_MSG", "IDS_MFA_ERROR_LIMIT_REACHED"}}));
}

TEST_F(HelperWindowTest, WaitsThreeSecondsForASilentServer) {
    const TestServer server("server", {"--silent"});
    for (const char* probeFirst : {"true", "false"}) {
        configureFor(server, {{"PREAUTH_CHECK_REQUIRED", probeFirst}});
        steady_clock::time_point offlineAt;
        FakeAgent agent(runtimeDir(), [&](const Value& request) -> std::optional<Value> {
            if (!request.contains("OFFLINE_MFA"))
                return Value(nullptr);
            offlineAt = steady_clock::now();
            return failure();
        });
        const auto begin = steady_clock::now();
        EXPECT_EQ(signIn(lightdm())->verdict, Verdict::Denied);
        EXPECT_LT(offlineAt - begin, 3500ms);
        EXPECT_EQ(agent.requests().size(), probeFirst == std::string("true") ? 1U : 2U);
    }
}

TEST_F(HelperWindowTest, TakesThePageAwayWithItsHostAndHoldsNoLock) {
    FakeAgent agent(runtimeDir(), [](const Value&) { return Value(nullptr); });
    auto first = std::make_unique<ModuleEnd>(environment());
    first->start(lightdm());
    ASSERT_TRUE(waitFor([&] { return agent.requests().size() == 1; }));
    // Another sign-in waits, then hears why.
    const auto second = signIn(lightdm());
    EXPECT_EQ(second->verdict, Verdict::Denied);
    EXPECT_THAT(second->lastAsked(), HasSubstr("Another sign-in is open"));
    EXPECT_FALSE(agent.isWithdrawn());
    first->hangUp();
    EXPECT_TRUE(first->helper().wait(1s));
    EXPECT_TRUE(waitFor([&] { return agent.isWithdrawn(); }, 1s));
    ModuleEnd third(environment());
    third.start(lightdm());
    EXPECT_TRUE(waitFor([&] { return agent.requests().size() == 2; }, 2s));
    // Killed, it leaves nothing behind either.
    kill(third.helper().pid(), SIGKILL);
    EXPECT_TRUE(waitFor([&] { return agent.isWithdrawn(); }, 1s));
    verifier::Start hasty = lightdm();
    hasty.left = 2s;
    const auto late = signIn(hasty);
    EXPECT_EQ(late->verdict, Verdict::Denied);
    EXPECT_THAT(late->lastAsked(), HasSubstr("time is up"));
}

}  // namespace
}  // namespace quorl::test
