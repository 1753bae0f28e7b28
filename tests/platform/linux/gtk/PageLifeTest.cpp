#include "WebStage.h"

#include <gtk/gtk.h>
#include <signal.h>

namespace quorl::test {
namespace {

using PageLife = WebStage;

TEST_F(PageLife, NothingRunsBeforeTheFirstPage) {
    view->addUserScript("window.early = 1;");
    view->loadRequest({.url = "about:blank"});
    bool listed = false;
    view->getAllCookies([&](const std::vector<Cookie>& cookies) { listed = cookies.empty(); });
    EXPECT_TRUE(evaluate("1").starts_with("error: "));
    EXPECT_TRUE(until([&] { return listed; }));
    EXPECT_EQ(descendants("WebKit").size(), 0u);
    EXPECT_EQ(delegate.take(), "");

    show();
    EXPECT_EQ(load({.url = "about:blank"}),
              "policy about:blank, start, commit, finish about:blank");
    EXPECT_EQ(evaluate("window.early"), "1");
    EXPECT_EQ(descendants("WebKitWebProces").size(), 1u);
}

TEST_F(PageLife, ScriptsAnswerWithTheirValues) {
    const std::string page = sandbox.root() / "a page \u00fc.htm";
    TestSandbox::write(page, "<p id=p>text</p><script src='side.js'></script>");
    TestSandbox::write(sandbox.root() / "side.js", "window.side = 'loaded';");
    view->loadFile(page);
    ASSERT_TRUE(until([this] { return delegate.count("finish file:///") == 1; }));
    const std::pair<const char*, const char*> cases[] = {
        {"'t\u00e9xt'", "t\u00e9xt"},
        {"14", "14"},
        {"1.5", "1.5"},
        {"true", "1"},
        {"undefined", "nothing"},
        {"null", "nothing"},
        {"side", "loaded"},
        {"document.getElementById('p').textContent", "text"},
    };
    for (const auto& [script, value] : cases)
        EXPECT_EQ(evaluate(script), value) << script;
    for (const char* script : {"document.querySelector('none').value", "var x = 'it's'"})
        EXPECT_NE(evaluate(script).find("Error"), std::string::npos) << evaluate(script);
    // Without a completion any value will do, and the order holds.
    std::string order;
    for (int i = 0; i < 50; ++i) {
        view->evaluateJavaScript("document.body // " + std::to_string(i), nullptr);
        view->evaluateJavaScript(
            std::to_string(i), [&](const ScriptResult& result) { order += result->value() + " "; });
    }
    ASSERT_TRUE(until([&] { return order.ends_with("49 "); }));
    EXPECT_TRUE(order.starts_with("0 1 2 3 4 5 6 7 8 9 10 "));
}

TEST_F(PageLife, MessagesArriveAsTextOrAsNothing) {
    startServer();
    load({.url = url("/page/echo")});
    const std::string post = "window.webkit.messageHandlers.MACLoginAgent.postMessage";
    evaluate(post + "('t\u00e9xt \\u0000 end'); 1");
    evaluate(post + "({METHOD: 'onButtonOK'}); 1");
    evaluate(post + "('x'.repeat(10 * 1024 * 1024)); 1");
    ASSERT_TRUE(until([this] { return delegate.messages.size() == 3; }));
    EXPECT_EQ(delegate.messages[0], std::string("t\u00e9xt \0 end", 11));
    EXPECT_EQ(delegate.messages[1], std::nullopt);
    EXPECT_EQ(delegate.messages[2]->size(), 10u * 1024 * 1024);
    EXPECT_EQ(delegate.count("message on MACLoginAgent"), 3u);

    // The page before goes on talking while the next one is on its way.
    evaluate("setInterval(() => " + post + "('late'), 5); 1");
    ASSERT_TRUE(until([this] { return delegate.messages.size() > 5; }));
    view->loadRequest({.url = url("/page/slow?seconds=1")});
    const std::size_t before = delegate.messages.size();
    ASSERT_TRUE(until([this] { return delegate.count("finish") == 1; }));
    EXPECT_EQ(delegate.messages.size(), before);
    evaluate(post + "('new'); 1");
    ASSERT_TRUE(until([&] { return delegate.messages.size() == before + 1; }));
    EXPECT_EQ(delegate.messages.back(), "new");
}

TEST_F(PageLife, NavigationsAreAskedForAndRefusedOnesEndThere) {
    startServer();
    load({.url = url("/page/echo")});
    delegate.policy = [this](const std::string& asked) {
        if (asked.find("refused") == std::string::npos)
            return NavigationDecision::allow;
        // As the agent does: another page, from inside the decision.
        view->stopLoading();
        view->loadRequest({.url = "about:blank"});
        return NavigationDecision::cancel;
    };
    const std::string blank = "policy about:blank, start, commit, finish about:blank";
    EXPECT_EQ(load({.url = url("/page/refused")}), "policy /page/refused, " + blank);
    const std::string way = "/redirect?status=302&to=/page/refused";
    std::string told = load({.url = url("/redirect?to=%2Fpage%2F%72efused")});
    ASSERT_TRUE(until([this] { return delegate.count("finish about:blank") == 1; }));
    told += ", " + delegate.take();
    EXPECT_TRUE(told.ends_with("policy /page/refused, failed before commit -999, " + blank))
        << told;

    load({.url = url("/page/echo")});
    evaluate(
        "const f = document.createElement('iframe'); f.src = '/page/refused-frame';"
        "document.body.append(f); 1");
    ASSERT_TRUE(until([this] { return delegate.count("finish about:blank") == 1; }));
    EXPECT_EQ(delegate.take(), "policy /page/refused-frame, " + blank);
    EXPECT_TRUE(requests("/page/refused").empty() && requests("/page/refused-frame").empty());
}

TEST_F(PageLife, AProcessThatDiesIsToldOnceAndReplaced) {
    startServer();
    load({.url = url("/page/echo")});
    for (const pid_t pid : descendants("WebKitWebProces"))
        kill(pid, SIGKILL);
    ASSERT_TRUE(until([this] { return delegate.count("terminated") == 1; }));
    EXPECT_TRUE(load({.url = url("/page/echo")}).ends_with("finish /page/echo"));

    // Dead before any page: not told again, or an error page would bring down one after another.
    for (int i = 0; i < 2; ++i) {
        view->loadRequest({.url = url("/page/slow?seconds=20")});
        ASSERT_TRUE(until([this] { return delegate.count("start") > 0; }));
        for (const pid_t pid : descendants("WebKitWebProces"))
            kill(pid, SIGKILL);
        ASSERT_TRUE(until([this] { return descendants("WebKitWebProces").empty(); }));
        serveFor(std::chrono::milliseconds(300));
        EXPECT_EQ(delegate.count("terminated"), i == 0 ? 1u : 0u);
        delegate.take();
    }
}

TEST_F(PageLife, LastingCookiesComeBackAndSessionCookiesDoNot) {
    startServer();
    load({.url = url("/page/cookies")});
    std::vector<Cookie> cookies;
    const auto list = [&] {
        bool done = false;
        view->getAllCookies([&](std::vector<Cookie> all) {
            cookies = std::move(all);
            done = true;
        });
        return until([&] { return done; });
    };
    ASSERT_TRUE(list());
    ASSERT_EQ(cookies.size(), 2u);
    for (const Cookie& cookie : cookies)
        EXPECT_EQ(cookie.sessionOnly, cookie.name == "session_cookie") << cookie.name;

    const auto file = sandbox.support() / "cookies.json";
    ASSERT_TRUE(until([&] { return std::filesystem::exists(file); }));
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(TestSandbox::read(file).find("session_cookie"), std::string::npos);

    for (const Cookie& cookie : std::vector(cookies)) {
        if (!cookie.sessionOnly)
            continue;
        bool deleted = false;
        view->deleteCookie(cookie, [&] { deleted = true; });
        ASSERT_TRUE(until([&] { return deleted; }));
    }
    ASSERT_TRUE(list());
    ASSERT_EQ(cookies.size(), 1u);
    EXPECT_EQ(cookies[0].name, "lasting_cookie");

    view.reset();
    view = application->makeWebView(
        {.scriptMessageHandlerName = "MACLoginAgent", .delegate = &delegate});
    load({.url = url("/page/echo?again")});
    ASSERT_EQ(requests("/page/echo?again").size(), 1u);
    EXPECT_EQ(header(requests("/page/echo?again")[0], "Cookie"), "lasting_cookie=two");
}

}  // namespace
}  // namespace quorl::test
