// The whole agent with the server: real channel, real window, real TLS, typed keys.
#include "AgentStage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quorl {
namespace {

using namespace test;

constexpr const char* secret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
const Value failure = {{"MFA_AUTH_RESULT", "FAILURE"}};

class OnlineFlowTest : public testing::Test {
  protected:
    /// A registered agent that runs beside its server.
    void start(AgentStage::Settings settings = {}, const std::string& certificate = "server") {
        stage.startServer({}, certificate);
        stage.startDisplay();
        stage.configure(settings);
        stage.startAgent();
    }
    void requestPage(const std::string& path) {
        stage.request({{"MFA_REQUEST_URL", path}, {"USER_NAME", "alice"}});
    }
    /// The request of the page itself, as the server got it.
    Value pageRequest(const std::string& path) {
        for (const Value& request : stage.serverRequests()) {
            if (stringValue(request, "path") == path)
                return request;
        }
        return {};
    }

    AgentStage stage;
};

TEST_F(OnlineFlowTest, RegistersThenAnswersWithWhatThePageSaysAboutATypedCode) {
    stage.startServer();
    stage.configure({{"INSTALLATION_KEY", AgentStage::encryptedKey("demo-installation-key")}});
    const std::string out = (stage.sandbox.root() / "action.out").string();
    const auto action = [&](const std::string& status) {
        return stage
            .run({"QUORLLoginAgent", "-action", "updateAgentStatus", "-status", status}, out, out)
            ->wait();
    };
    EXPECT_EQ(action("install"), 0);
    const Value registered = stage.configuration();
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
    EXPECT_FALSE(pageRequest("/RestAPI/logonagent/mfa/addOfflineEnrollment").is_null())
        << "the page enrolls with the headers that the agent signed for it";
    EXPECT_EQ(stage.logged("getOfflineEnrollmentAPIAuthzHeader: script successfully executed"), 1U);

    struct stat log {};
    ASSERT_EQ(::stat((stage.sandbox.support() / "VantorixClient.log").c_str(), &log), 0);
    EXPECT_EQ(log.st_mode & 0777, 0600U);
    EXPECT_EQ(stage.agent().stop(SIGTERM), 0);
    EXPECT_EQ(stage.logged("QUORLLoginAgent Application terminated"), 1U);
}

TEST_F(OnlineFlowTest, ThePageRequestCarriesBodyAndHeadersAsGiven) {
    start();
    const std::string body = "a=1&b=%41+\xc3\xbc\n\t\"'<>&end=\x01\x7f";
    stage.request({{"MFA_REQUEST_URL", "/page/echo?x=1 2"},
                   {"POST_DATA", body},
                   {"REQUEST_HEADERS",
                    {{"X-Request-Id", "42; q"}, {"Authorization", "Basic 1:abc="}, {"X-No", 7}}}});
    ASSERT_TRUE(stage.waitForPage());
    const Value request = pageRequest("/page/echo");
    EXPECT_EQ(stringValue(request, "method"), "POST");
    EXPECT_EQ(stringValue(request, "target"), "/page/echo?x=1%202");
    EXPECT_EQ(stringValue(request, "body"), body);
    const std::string headers = request["headers"].dump();
    EXPECT_NE(headers.find("42; q"), std::string::npos) << headers;
    EXPECT_NE(headers.find("Basic 1:abc="), std::string::npos) << headers;
    EXPECT_EQ(headers.find("X-No"), std::string::npos) << headers;
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
}

TEST_F(OnlineFlowTest, WhatAPagePostsNeverBecomesSuccessByAccident) {
    start();
    const Value emptyFailure = {
        {"MFA_AUTH_RESULT", "FAILURE"}, {"KEY", ""}, {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", ""}};
    for (const std::string query :
         {"message=no json", "message={\"SYSTEM_MFA_RESULT\":\"SUCCESS\"}&form=object",
          "size=10000000", "message={\"METHOD\":\"onbuttonok\"}",
          "message={\"SYSTEM_MFA_RESULT\":null,\"x\":[[[[[[[[[[]]]]]]]]]]}"}) {
        requestPage("/page/post?" + query);
        EXPECT_EQ(stage.answer(), emptyFailure) << query;
    }
    requestPage("/page/post?message={\"SYSTEM_MFA_RESULT\":\"SUCCESS\",\"SYSTEM_MFA_KEY\":\"k\"}");
    EXPECT_EQ(stringValue(stage.answer(), "KEY"), "k") << "and the next request works";
}

TEST_F(OnlineFlowTest, AnErrorTextStaysOnScreenUntilTheWindowIsClosed) {
    start();
    requestPage(
        "/page/"
        "post?message={\"SYSTEM_MFA_RESULT\":\"FAILURE\",\"SYSTEM_MFA_ERROR_MSG\":\"Locked\"}");
    ASSERT_TRUE(stage.waitForLog("showError going to show... Locked")) << stage.log();
    EXPECT_EQ(stage.logged("sendMFAResponse :: initiated"), 0U);
    stage.press("Escape");
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
}

TEST_F(OnlineFlowTest, AnErrorTextNeverAnswersTheRequest) {
    start();
    const std::string post =
        "window.webkit.messageHandlers.MACLoginAgent.postMessage("
        "`{\"SYSTEM_MFA_RESULT\":\"SUCCESS\"}`)";
    stage.request({{"ERROR_MSG", "<img src=x onerror=" + post + ">"}});
    ASSERT_TRUE(stage.waitForLog("a message of the blank page is dropped")) << stage.log();
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
    stage.request({{"ERROR_MSG", "';" + post + ";'"}});
    ASSERT_TRUE(stage.waitForLog("showError going to show... ';"));
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
    EXPECT_EQ(stage.logged("a message of the blank page is dropped"), 1U);
}

TEST_F(OnlineFlowTest, ASecondRequestTakesOverAndTheFirstClientReadsTheEnd) {
    start();
    requestPage("/mfa/verify?USER_NAME=alice&DOMAIN_NAME=EXAMPLE");
    ASSERT_TRUE(stage.waitForPage());
    const std::string first = (stage.sandbox.root() / "first").string();
    const auto replaced = stage.run({"kesh-request", "--error-msg", "Closed today"}, first);
    ASSERT_TRUE(stage.waitForLog("showError going to show... Closed today"));
    EXPECT_EQ(stage.answer(), Value()) << "the first client is told at once that no answer comes";
    stage.clickClose();
    EXPECT_EQ(replaced->wait(), 1);
    EXPECT_NE(TestSandbox::read(first).find("FAILURE"), std::string::npos);
}

struct Untrusted {
    const char* certificate;
    const char* restrict;
    bool shown;
};
class CertificateFlowTest : public OnlineFlowTest, public testing::WithParamInterface<Untrusted> {};

TEST_P(CertificateFlowTest, TheConfigurationDecidesAboutABadCertificate) {
    start({{"RESTRICT_BADCERT", GetParam().restrict}}, GetParam().certificate);
    requestPage("/page/echo");
    const std::string error = "showError going to show... ";
    if (GetParam().shown) {
        ASSERT_TRUE(stage.waitForPage());
        EXPECT_EQ(stage.logged(error), 0U) << stage.log();
    } else {
        ASSERT_TRUE(stage.waitForLog(error)) << stage.log();
        EXPECT_TRUE(stage.serverRequests().empty());
    }
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
}

INSTANTIATE_TEST_SUITE_P(Certificates, CertificateFlowTest,
                         testing::Values(Untrusted{"server", "true", true},
                                         Untrusted{"self-signed", "", false},
                                         Untrusted{"wrong-host", "true", false},
                                         Untrusted{"expired", "false", true}),
                         [](const auto& info) {
                             std::string name = info.param.certificate;
                             std::erase(name, '-');
                             return name;
                         });

TEST_F(OnlineFlowTest, ADeadWebProcessLeavesAnErrorPageThatCanBeClosed) {
    start();
    requestPage("/mfa/verify?USER_NAME=alice&DOMAIN_NAME=EXAMPLE");
    ASSERT_TRUE(stage.waitForPage());
    // The web process is a descendant of this agent; inside its sandbox the parent is another.
    const std::string find =
        "list() { for child in $(cat /proc/$1/task/*/children 2>/dev/null); do "
        "echo $child; list $child; done; }; "
        "for pid in $(list $1); do grep -q WebKitWebProces /proc/$pid/comm && echo $pid; done";
    std::istringstream pids(
        outputOf({"bash", "-c", find, "bash", std::to_string(stage.agent().pid())}));
    int killed = 0;
    for (pid_t pid = 0; pids >> pid; ++killed)
        kill(pid, SIGKILL);
    ASSERT_GT(killed, 0);
    ASSERT_TRUE(stage.waitForLog("showError going to show... ")) << stage.log();
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
    requestPage("/page/echo");
    EXPECT_TRUE(stage.waitForPage()) << "the next request starts a new web process";
}

TEST_F(OnlineFlowTest, AnUnreachableServerAndARefusedPageEndOnTheErrorPage) {
    start();
    requestPage("/redirect?to=https://elsewhere.example/");
    ASSERT_TRUE(stage.waitForLog(
        "showError going to show... External URL is denied. Please contact the administrator."))
        << stage.log();
    stage.stopServer();
    requestPage("/mfa/verify");
    ASSERT_TRUE(stage.waitForLog("didFailProvisionalLoadWithError"));
    ASSERT_TRUE(stage.waitForLog("showError going to show...", 2)) << stage.log();
    stage.clickClose();
    EXPECT_EQ(stage.answer(), failure);
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
    EXPECT_EQ(agent->stop(SIGTERM), 0);
}

}  // namespace
}  // namespace quorl
