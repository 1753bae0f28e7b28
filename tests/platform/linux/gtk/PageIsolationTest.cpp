#include "WebStage.h"

#include <algorithm>

namespace quorl::test {
namespace {

// What one page may do to the next, to the agent's own pages, and to whoever comes after.
class PageIsolation : public WebStage {
  protected:
    void SetUp() override {
        WebStage::SetUp();
        startServer();
    }
    /// A page of the server with that content.
    PageRequest page(const std::string& html, const std::string& name = "page") const {
        return {.url = url("/reply?type=text/html&name=" + name), .method = "POST", .body = html};
    }
    bool loadUntil(const PageRequest& request, const std::string& event) {
        delegate.take();
        view->loadRequest(request);
        return until([&] { return delegate.count(event) > 0; });
    }
    static std::vector<pid_t> pageProcesses() { return descendants("WebKitWebProces"); }
};

const std::string post = "window.webkit.messageHandlers.MACLoginAgent.postMessage";

TEST_F(PageIsolation, NoPageHoldsUpOrAnswersForTheNext) {
    const std::pair<const char*, std::string> pages[] = {
        {"navigates", "setInterval(() => { location = '/page/echo?own' + Math.random(); }, 3)"},
        {"talks", "setInterval(() => " + post + "('old'), 1)"},
        {"hangs", "setTimeout(() => { while (true) {} }, 100)"},
    };
    for (const auto& [name, script] : pages) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(loadUntil(page("<script>" + script + "</script>", name), "commit"));
        serveFor(std::chrono::milliseconds(300));
        const auto before = pageProcesses();
        const auto told = delegate.messages.size();
        const auto start = std::chrono::steady_clock::now();
        ASSERT_TRUE(loadUntil({.url = url("/page/slow?seconds=1")}, "finish"));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
        EXPECT_EQ(delegate.count("policy "), 1u);
        EXPECT_EQ(delegate.messages.size(), told);
        for (const pid_t pid : pageProcesses())
            EXPECT_EQ(std::ranges::count(before, pid), 0);
    }
}

TEST_F(PageIsolation, NothingOfOnePersonIsLeftForTheNext) {
    load({.url = url("/page/cookies")});
    load({.url = url("/page/echo?name"), .method = "POST", .body = "password=p"});
    evaluate(
        "localStorage.setItem('name', 'alice'); sessionStorage.setItem('name', 'alice');"
        "window.done = 0; caches.open('c').finally(() => window.done++);"
        "const db = indexedDB.open('d'); db.onsuccess = db.onerror = () => window.done++; 1");
    EXPECT_TRUE(until([this] { return evaluate("window.done") == "2"; }));
    const auto before = descendants("WebKit");
    view->clear();
    load({.url = url("/page/echo?next")});
    EXPECT_EQ(evaluate("[localStorage.length, sessionStorage.length, history.length,"
                       " document.cookie].join()"),
              "0,0,1,lasting_cookie=two");
    EXPECT_EQ(header(requests("/page/echo?next")[0], "Cookie"), "lasting_cookie=two");
    evaluate(
        "caches.keys().then((k) => indexedDB.databases().then((d) =>"
        " { window.left = k.length + d.length; })); 1");
    EXPECT_TRUE(until([this] { return evaluate("window.left") == "0"; }));
    for (const pid_t pid : descendants("WebKit"))
        EXPECT_EQ(std::ranges::count(before, pid), 0) << "a process of the page before lives on";
}

TEST_F(PageIsolation, AFreshProcessWaitsForThePage) {
    view->warmUp();
    ASSERT_TRUE(until([] { return pageProcesses().size() == 1; }));
    serveFor(std::chrono::milliseconds(500));
    EXPECT_EQ(delegate.take(), "");
    const auto first = pageProcesses();
    load({.url = url("/page/echo")});
    EXPECT_EQ(pageProcesses(), first);
    view->clear();
    ASSERT_TRUE(until([&] { return pageProcesses().size() == 1 && pageProcesses() != first; }));
    EXPECT_EQ(delegate.take(), "");
}

TEST_F(PageIsolation, OnlyThePageItselfHasTheChannel) {
    const std::string attempt = "try { " + post + "('frame') } catch (e) {}";
    const std::string html =
        "<iframe src='" + url("/page/post?message=frame", "localhost") + "'></iframe>" +
        "<iframe src='/page/post?message=frame'></iframe>" + "<iframe srcdoc=\"<script>" + attempt +
        "</script>\"></iframe><iframe sandbox=allow-scripts srcdoc=\"<script>" + attempt +
        "</script>\"></iframe><script>const f = document.createElement('iframe');"
        "document.body.append(f); window.empty = typeof f.contentWindow.webkit.messageHandlers;"
        "onload = () => setTimeout(() => " +
        post + "('page'), 300)</script>";
    load(page(html));
    ASSERT_TRUE(until([this] { return !delegate.messages.empty(); }));
    EXPECT_EQ(delegate.messages, std::vector<std::optional<std::string>>{"page"});
    EXPECT_EQ(delegate.sources[0], page("").url);
    EXPECT_EQ(evaluate("window.empty"), "undefined");
}

TEST_F(PageIsolation, TheBlankPageLeadsNowhereAndSaysNothing) {
    show();
    for (const char* blank : {"about:blank", "about:blank?x"}) {
        SCOPED_TRACE(blank);
        load({.url = blank});
        const std::string target = url("/page/echo?from-blank");
        evaluate("document.body.innerHTML = \"<iframe src='" + target + "'></iframe>" +
                 "<img src=x onerror=\\\"location='" + target + "'\\\">" + "<a href='" + target +
                 "'>x</a>\"; document.querySelector('a').click();" + post + "('blank'); 1");
        serveFor(std::chrono::milliseconds(500));
        EXPECT_EQ(delegate.take(), "");
    }
    EXPECT_TRUE(requests("/page/echo?from-blank").empty());
}

TEST_F(PageIsolation, WhatWasPostedIsNotPostedAgainByGoingBack) {
    load({.url = url("/page/echo?form"), .method = "POST", .body = "password=p"});
    for (const char* way : {"history.back()", "location.reload()"}) {
        if (way[0] == 'h') {
            evaluate("setTimeout(() => { location = '/page/echo?next'; }, 0); 1");
            ASSERT_TRUE(until([this] { return delegate.count("finish") > 0; }));
        }
        evaluate(std::string(way) + "; 1");
        serveFor(std::chrono::milliseconds(500));
        EXPECT_EQ(requests("/page/echo?form").size(), 1u) << way;
    }
}

TEST_F(PageIsolation, LastingCookiesAreOnDiskWhenTheEndWaitsForThem) {
    load({.url = url("/page/echo")});
    evaluate("document.cookie = 'late=1; Max-Age=1000; Secure; path=/'; 1");
    EXPECT_TRUE(view->saveCookies(std::chrono::seconds(5)));
    EXPECT_NE(TestSandbox::read(sandbox.support() / "cookies.json").find("late"),
              std::string::npos);
}

TEST_F(PageIsolation, OnlyOurOwnPagesAreSetLarger) {
    const std::string height =
        "document.body.innerHTML = '<span id=s style=\"font:6px sans-serif\">x</span>';"
        "document.getElementById('s').getBoundingClientRect().height > 12";
    load({.url = url("/page/echo")});
    EXPECT_EQ(evaluate(height), "0");
    load({.url = "about:blank"});
    EXPECT_EQ(evaluate(height), "1");
}

}  // namespace
}  // namespace quorl::test
