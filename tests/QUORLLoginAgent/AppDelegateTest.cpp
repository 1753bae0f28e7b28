// The delegate on fakes: what a request, a page, a click and a closed window lead to.
#include "AgentChannel.h"
#include "AppDelegate.h"
#include "ConfigParser.h"
#include "ErrorPage.h"
#include "FakeApplication.h"
#include "FakePorts.h"
#include "FileInputs.h"
#include "KeyedArchive.h"
#include "PageScripts.h"
#include "PropertyList.h"
#include "TestClock.h"
#include "TestSandbox.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

using namespace test;

TEST(PageScripts, AreTheAgreedTextsToTheLetter) {
    const auto golden = [](const std::string& name) {
        return TestSandbox::read(QUORL_TEST_DATA "/page-scripts/" + name);
    };
    EXPECT_EQ(errorPageScript("No way <b>in</b>", true, "https://h:1/x"), golden("error-page.js"));
    EXPECT_EQ(fileInjectionScript(PageEvent::navigateComplete), golden("file-inputs-at-commit.js"));
    EXPECT_EQ(fileInjectionScript(PageEvent::documentComplete),
              golden("file-inputs-when-complete.js"));
    EXPECT_EQ(authHeaderResultScript("{\"a\": 1}"), "handleAuthHeaderResult({\"a\": 1});");
}

class AppDelegateTest : public testing::Test {
  protected:
    /// Launches with these settings beside the usual server.
    void launch(const Value& settings = Value::object()) {
        Value config = {{"SERVERNAME", "server.test"},
                        {"PORTNUMBER", "8443"},
                        {"PRODTITLE", "Sign in"},
                        {"LOCALE_ID", "xx"}};
        config.update(settings);
        writePropertyListFile(sandbox.support() / "config.plist", config);
        const std::filesystem::path resourceFolder = sandbox.root() / "resources";
        std::filesystem::create_directories(resourceFolder / "xx.lproj");
        writePropertyListFile(resourceFolder / "xx.lproj/Localizable.strings",
                              {{"IDS_SERVER_UNREACH", "unreachable"},
                               {"IDS_MAXIMIZE", "larger"},
                               {"IDS_PANEL_LINK", "forgotten"}});
        sandbox.write(sandbox.root() / "resources/resources/offlineMFA/OfflineMFA.htm", "page");
        sandbox.write(sandbox.root() / "resources/reset_icon.png", "icon");
        delegate.emplace(AppServices{application, ports, resources, clock});
        delegate->applicationDidFinishLaunching();
        view = application.webView;
        send({.msgid = MessageId::checkIn, .replyPort = relay});
    }
    void send(const PortMessage& message) { ports.applicationHandler(message); }
    void request(const Value& dictionary) {
        send({.msgid = MessageId::forwardedRequest, .components = {*archive(dictionary)}});
    }
    void post(const std::string& json, const std::string& page = "https://server.test:8443/mfa") {
        view->delegate().didReceiveScriptMessage("MACLoginAgent", json, {page});
    }
    /// What the requester got; null for a message without content.
    Value lastAnswer() const {
        const auto messages = relay->messages();
        if (messages.empty() || messages.back().msgid != MessageId::result)
            return "no answer";
        const auto& components = messages.back().components;
        return components.empty() ? Value() : unarchive(components.front()).value_or("broken");
    }
    std::size_t answers() const { return relay->messages().size(); }
    std::string log() const { return sandbox.read(sandbox.support() / "VantorixClient.log"); }
    bool logged(const std::string& line) const { return log().find(line) != std::string::npos; }

    TestSandbox sandbox;
    LogCapture capture;
    FakeRunLoop loop;
    FakeApplication application{loop};
    FakePortSystem ports;
    Resources resources{(sandbox.root() / "resources").string()};
    TestClock clock{std::chrono::seconds(1'700'000'000)};
    std::shared_ptr<FakeSendRight> relay = std::make_shared<FakeSendRight>();
    std::optional<AppDelegate> delegate;
    FakeWebView* view = nullptr;
};

TEST_F(AppDelegateTest, LaunchDressesPanelAndWindowFromTheConfiguration) {
    launch({{"BUTTONTEXT", "Forgot it?"}, {"SHOW_RP_UA_LINK", "TrUe"}});
    EXPECT_TRUE(application.menuBarHidden);
    EXPECT_EQ(application.window.title, "Sign in");
    EXPECT_EQ(application.panel.text, "Forgot it?");
    EXPECT_EQ(application.words.maximize, "larger");
    EXPECT_EQ(application.panel.image, (sandbox.root() / "resources/reset_icon.png").string());
    EXPECT_EQ(application.panel.shownAt, (Rect{{1280 - 235, 0}, {215, 60}}));
    EXPECT_EQ(view->delegate().didReceiveAuthenticationChallenge(AuthenticationMethod::serverTrust),
              ChallengeAnswer::performDefaultHandling);
    EXPECT_TRUE(view->requests.empty());
}

TEST_F(AppDelegateTest, ThePanelStaysHiddenAndAnyCertificatePassesWhenConfiguredSo) {
    launch({{"SHOW_RP_UA_LINK", "yes"}, {"RESTRICT_BADCERT", "False"}});
    EXPECT_FALSE(application.panel.visible);
    EXPECT_EQ(application.panel.text, "forgotten");
    const auto answer = [&](AuthenticationMethod method) {
        return view->delegate().didReceiveAuthenticationChallenge(method);
    };
    EXPECT_EQ(answer(AuthenticationMethod::serverTrust), ChallengeAnswer::useCredential);
    EXPECT_EQ(answer(AuthenticationMethod::other), ChallengeAnswer::performDefaultHandling);
}

TEST_F(AppDelegateTest, AnOnlineRequestOpensThePageAndThePagesResultIsTheAnswer) {
    launch();
    request({{"MFA_REQUEST_URL", "/mfa?u=a b"}, {"OFFLINE_MFA", true}, {"POST_DATA", "x=1"}});
    EXPECT_TRUE(application.window.visible && application.window.dressedForLogin &&
                application.window.centered && application.window.key);
    EXPECT_EQ(application.window.webViewFrame, (Rect{{0, 0}, {896, 525}}));
    EXPECT_FALSE(application.panel.enabled);
    ASSERT_EQ(view->requests.size(), 1U);
    EXPECT_EQ(view->requests[0].url, "https://server.test:8443/mfa?u=a%20b");
    EXPECT_EQ(view->requests[0].method, "POST");
    EXPECT_FALSE(view->navigationGestures);

    view->delegate().didReceiveScriptMessage("OtherChannel", "{}", {});
    EXPECT_EQ(answers(), 0U);
    post(R"({"SYSTEM_MFA_RESULT":"SUCCESS","SYSTEM_MFA_KEY":"k"})");
    EXPECT_EQ(lastAnswer(), (Value{{"MFA_AUTH_RESULT", "SUCCESS"},
                                   {"KEY", "k"},
                                   {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", ""}}));
    EXPECT_FALSE(application.window.visible);
    EXPECT_TRUE(application.panel.enabled);
    EXPECT_EQ(view->requests.back().url, "about:blank");
    EXPECT_TRUE(logged("sendMFAResponse: Message sent to the AgentMessagingService.."));
}

TEST_F(AppDelegateTest, AnUnconfiguredServerShowsTheErrorPageWithoutALoad) {
    launch({{"PORTNUMBER", ""}});
    request({{"MFA_REQUEST_URL", "/mfa"}});
    view->takeScripts();
    view->delegate().didFinishNavigation(blankPage);
    EXPECT_EQ(view->takeScripts(), std::vector{errorPageScript("unreachable", false, "")});
    EXPECT_EQ(view->requests.size(), 1U);
    EXPECT_TRUE(logged("getURLWithOperation : Server settings not configured correctly"));
}

TEST_F(AppDelegateTest, TheErrorPageSaysWhatHappenedAndOffersToRetryWhereThatHelps) {
    launch({{"HELP_TEXT", "Desk: <b>7</b>"}});
    for (const char* file :
         {"offlineMFA/OfflineMFA.css", "errorPage/ErrorPage.css", "errorPage/ErrorPage.js"})
        TestSandbox::write(sandbox.root() / "resources/resources" / file, "");
    WebViewDelegate& web = view->delegate();
    const Value online = {{"MFA_REQUEST_URL", "/mfa"}, {"POST_DATA", "x=1"}};
    const auto fail = [&](int code) { web.didFailProvisionalNavigation({code, "failed"}); };
    const struct {
        Value request;
        std::function<void()> event;
        std::string title;
        bool retry;
    } cases[] = {
        {online, [&] { fail(-1004); }, "UNREACHABLE", true},
        {online, [&] { fail(-1001); }, "TIMEOUT", true},
        {online, [&] { fail(-1201); }, "CERTIFICATE", false},
        {online, [&] { fail(-1204); }, "CERTIFICATE", false},
        {online, [&] { fail(-1200); }, "UNREACHABLE", true},
        {online, [&] { fail(-1205); }, "UNREACHABLE", true},
        {online, [&] { web.webContentProcessDidTerminate(); }, "PAGE_DIED", true},
        {online, [&] { web.decidePolicyForNavigationAction("https://evil.test/"); }, "FOREIGN",
         false},
        {{{"MFA_ERROR_MSG", "IDS_MFA_ERROR_LIMIT_REACHED"}}, [] {}, "LIMIT", false},
        {{{"MFA_ERROR_MSG", "IDS_MFA_ERROR_SERVER_UNREACH"}}, [] {}, "UNREACHABLE", false},
        {{{"MFA_ERROR_MSG", "IDS_SSL_CERTIFICATE_FAILED"}}, [] {}, "CERTIFICATE", false},
        {{{"MFA_ERROR_MSG", "IDS_MFA_ERROR_NOT_ENROLLED"}}, [] {}, "OTHER", false},
        {{{"ERROR_MSG", "plain text"}}, [] {}, "OTHER", false},
    };
    const auto links = [&] {
        return web.decidePolicyForNavigationAction(OwnLink::retry) == NavigationDecision::cancel;
    };
    for (const auto& [asked, event, title, retry] : cases) {
        SCOPED_TRACE(asked.dump() + title);
        request(asked);
        event();
        view->takeScripts();
        web.didCommitNavigation();
        web.didFinishNavigation(blankPage);
        std::string frame = view->scripts.at(1);
        EXPECT_NE(frame.find("IDS_ERROR_" + title + "_TITLE"), frame.npos) << frame;
        EXPECT_NE(frame.find(R"("text":"Desk: <b>7</b>")"), frame.npos) << frame;
        EXPECT_EQ(frame.find(OwnLink::retry) != frame.npos, retry);
        const std::size_t loads = view->requests.size();
        EXPECT_TRUE(links());
        ASSERT_EQ(view->requests.size(), loads + (retry ? 1 : 0));
        if (retry) {
            EXPECT_EQ(view->requests.back().body, "x=1");
        }
    }
    // They are links of that page alone.
    request(online);
    web.didCommitNavigation();
    EXPECT_FALSE(links());
    const std::size_t loads = view->requests.size();
    fail(-999);
    web.didFailNavigation({-1005, "lost"});
    EXPECT_EQ(view->requests.size(), loads) << "a replaced load is no failure";
    fail(-1004);
    web.didFinishNavigation(blankPage);
    web.decidePolicyForNavigationAction(OwnLink::close);
    EXPECT_EQ(lastAnswer(), (Value{{"MFA_AUTH_RESULT", "FAILURE"}}));
    EXPECT_FALSE(application.window.visible);
}

TEST_F(AppDelegateTest, AListWithoutTheBlankPageRefusesEverythingElseButThat) {
    launch({{"MAC_AGENT_HOST_EXCLUDE", "idp.test"}});
    EXPECT_TRUE(logged("initBrowser : MAC_AGENT_HOST_EXCLUDE lacks about:blank"));
    request({{"MFA_REQUEST_URL", "/mfa"}});
    WebViewDelegate& web = view->delegate();
    EXPECT_EQ(web.decidePolicyForNavigationAction(blankPage), NavigationDecision::cancel)
        << "a page's own";
    const std::size_t loads = view->requests.size();
    EXPECT_EQ(web.decidePolicyForNavigationAction(blankPage), NavigationDecision::allow);
    EXPECT_EQ(view->requests.size(), loads) << "a refusal would load it again, for ever";
}

TEST_F(AppDelegateTest, AResultThatCannotTravelIsAFailureAndTheLogSaysWhatWasSent) {
    launch();
    for (const std::string& key : {std::string(200'000, 'k'), std::string("$null")}) {
        request({{"MFA_REQUEST_URL", "/mfa"}});
        post(Value{{"SYSTEM_MFA_RESULT", "SUCCESS"}, {"SYSTEM_MFA_KEY", key}}.dump());
        EXPECT_EQ(lastAnswer(), (Value{{"MFA_AUTH_RESULT", "FAILURE"}}));
    }
    EXPECT_EQ(answers(), 2U);
    relay->failing = true;
    request({{"ERROR_MSG", "plain text"}});
    application.window.close();
    EXPECT_TRUE(logged("sendMFAResponse: the AgentMessagingService did not take the message"));
}

TEST_F(AppDelegateTest, ASelfServiceWindowThatNobodyUsesCloses) {
    launch();
    application.linkAction();
    EXPECT_EQ(application.window.idleLimit, std::chrono::minutes(5));
    send({.msgid = MessageId::withdrawn});
    EXPECT_TRUE(application.window.visible) << "the self-service page is nobody's request";
    application.window.sitIdle();
    EXPECT_FALSE(application.window.visible);
    EXPECT_EQ(view->requests.back().url, blankPage);
    request({{"MFA_REQUEST_URL", "/mfa"}});
    EXPECT_EQ(application.window.idleLimit, std::nullopt) << "an approval may take its time";
}

TEST_F(AppDelegateTest, ClosingDeletesSessionCookiesOnlyAndALateAnswerIsHarmless) {
    launch();
    application.linkAction();
    EXPECT_EQ(view->requests.back().url, "https://server.test:8443/AgentPasswordSelfService.cc");
    EXPECT_TRUE(logged("launchSelservice: Unable to get Agent access key"));
    view->cookies = {{"session", "server.test", "/", true}, {"kept", "server.test", "/", false}};
    application.window.close();
    view->deliver();
    ASSERT_EQ(view->cookies.size(), 1U);
    EXPECT_EQ(view->cookies[0].name, "kept");
    EXPECT_TRUE(logged("Deleted cookie: session\n"));
    EXPECT_EQ(answers(), 0U) << "no request was pending";
}

TEST_F(AppDelegateTest, EveryPageLosesFileInputsAndContextMenu) {
    launch();
    view->delegate().didCommitNavigation();
    EXPECT_EQ(view->takeScripts(), std::vector{fileInjectionScript(PageEvent::navigateComplete)});
    EXPECT_EQ(view->userScripts, std::vector{std::string(noPlatformAuthenticatorScript)});
    view->delegate().didFinishNavigation("https://server.test:8443/mfa");
    EXPECT_EQ(view->takeScripts(), (std::vector{fileInjectionScript(PageEvent::documentComplete),
                                                std::string(noContextMenuScript)}));
}

}  // namespace
}  // namespace quorl
