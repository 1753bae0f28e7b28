#include "WebStage.h"

#include <glib.h>

namespace quorl::test {
namespace {

using PageLoading = WebStage;

std::string bodyOf(const Value& request) {
    gsize size = 0;
    const std::string encoded = stringValue(request, "body_base64").value_or("");
    guchar* data = g_base64_decode(encoded.c_str(), &size);
    const std::string body(reinterpret_cast<char*>(data), size);
    g_free(data);
    return body;
}

std::string allByteValues(std::size_t length) {
    std::string body(length, '\0');
    for (std::size_t i = 0; i < length; ++i)
        body[i] = static_cast<char>(i * 7 + i / 256);
    return body;
}

TEST_F(PageLoading, BodiesArriveByteForByteWithTheirHeaders) {
    startServer();
    struct Case {
        std::string body;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string contentType;
    };
    const Case cases[] = {
        {"USER_NAME=j%C3%B6rg&x=a+b&&=&y", {}, "application/x-www-form-urlencoded"},
        {allByteValues(300'000),
         {{"Content-Type", "application/octet-stream"}},
         "application/octet-stream"},
        {"{\"a\": \"\u00fc\r\n\"}",
         {{"content-type", "application/json; charset=\"utf-8\""},
          {"Authorization", "Bearer a.b=="}},
         "application/json; charset=\"utf-8\""},
        {"a=1",
         {{"X-Bad Name", "x"}, {"X-Split", "one\r\nX-Two: two"}, {"X-Good", "caf 1"}},
         "application/x-www-form-urlencoded"},
    };
    int number = 0;
    for (const Case& tried : cases) {
        const std::string path = "/AgentPasswordSelfService.cc?" + std::to_string(number++);
        SCOPED_TRACE(path);
        EXPECT_EQ(
            load(
                {.url = url(path), .method = "POST", .body = tried.body, .headers = tried.headers}),
            "policy " + path + ", start, commit, finish " + path);
        const auto seen = requests(path);
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(stringValue(seen[0], "method"), "POST");
        EXPECT_TRUE(bodyOf(seen[0]) == tried.body);
        EXPECT_EQ(header(seen[0], "Content-Type"), tried.contentType);
    }
    EXPECT_EQ(header(requests("/AgentPasswordSelfService.cc?2")[0], "Authorization"),
              "Bearer a.b==");
    const Value last = requests("/AgentPasswordSelfService.cc?3")[0];
    EXPECT_EQ(header(last, "X-Good"), "caf 1");
    EXPECT_FALSE(header(last, "X-Split") || header(last, "X-Two") || header(last, "X-Bad Name"));
    EXPECT_EQ(header(last, "Origin"), url(""));
}

TEST_F(PageLoading, HeadersGoWithThePageRequestAndStayWithItsOrigin) {
    startServer();
    const std::vector<std::pair<std::string, std::string>> headers{
        {"X-Request", "r=1; \"q\""}, {"Authorization", "Basic eDp5"},
        {"User-Agent", "agent/1"},   {"Accept", "text/html;q=0.5"},
        {"Accept-Language", "de"},   {"Cookie", "given=one; and=two"}};
    for (const std::optional<std::string>& body :
         {std::optional<std::string>(), std::optional<std::string>("a=b")}) {
        const std::string method = body ? "POST" : "GET";
        SCOPED_TRACE(method);
        const std::string path = "/page/echo?" + method;
        load({.url = url(path), .method = method, .body = body, .headers = headers});
        ASSERT_EQ(requests(path).size(), 1u);
        const Value seen = requests(path)[0];
        for (const auto& [name, value] : headers) {
            if (name != "Cookie") {
                EXPECT_EQ(header(seen, name), value) << name;
            }
        }
        const std::string cookie = header(seen, "Cookie").value_or("");
        EXPECT_NE(cookie.find("given=one"), std::string::npos) << cookie;
        EXPECT_NE(cookie.find("and=two"), std::string::npos) << cookie;
        for (const Value& field : seen.at("headers"))
            EXPECT_EQ(field.at(0).get<std::string>().find("Quorl"), std::string::npos) << field;

        // To another origin nothing of them goes along; what the page asks for itself never has
        // them.
        const std::string target = "/page/echo?elsewhere" + method;
        const std::string way = "/redirect?status=307&to=" + url(target, "localhost");
        EXPECT_EQ(load({.url = url(way), .method = method, .body = body, .headers = headers}),
                  "policy " + way + ", start, policy " + target + ", commit, finish " + target);
        ASSERT_EQ(requests(target).size(), 1u);
        const Value elsewhere = requests(target)[0];
        for (const char* name : {"X-Request", "Authorization", "Cookie", "X-Quorl-Page-Headers"})
            EXPECT_EQ(header(elsewhere, name), std::nullopt) << name;
        if (body) {
            EXPECT_EQ(bodyOf(elsewhere), *body);
            EXPECT_EQ(header(elsewhere, "Content-Type"), "application/x-www-form-urlencoded");
        }
        evaluate("fetch('/page/echo?own" + method + "'); 1");
        ASSERT_TRUE(until([&] { return !requests("/page/echo?own" + method).empty(); }));
        EXPECT_EQ(header(requests("/page/echo?own" + method)[0], "X-Request"), std::nullopt);
        EXPECT_EQ(header(requests("/page/echo?own" + method)[0], "Cookie"), std::nullopt);
        evaluate("fetch('" + url("/page/echo?site" + method) +
                 "', {mode: 'no-cors', credentials: 'include'}); 1");
        ASSERT_TRUE(until([&] { return !requests("/page/echo?site" + method).empty(); }));
        EXPECT_EQ(header(requests("/page/echo?site" + method)[0], "Cookie"), std::nullopt);
    }
}

TEST_F(PageLoading, AFormBringsTheSitesOwnCookiesAndFollowsRedirects) {
    startServer();
    load({.url = url("/page/echo")});
    evaluate("document.cookie = 'strict=1; SameSite=Strict; Secure; path=/'; 1");
    load({.url = "about:blank"});
    load({.url = url("/page/echo?form"), .method = "POST", .body = "a=b"});
    ASSERT_EQ(requests("/page/echo?form").size(), 1u);
    EXPECT_EQ(header(requests("/page/echo?form")[0], "Cookie"), "strict=1");

    const std::string way = "/redirect?status=302&to=/page/echo?after";
    EXPECT_EQ(
        load({.url = url(way), .method = "POST", .body = "a=b"}),
        "policy " + way + ", start, policy /page/echo?after, commit, finish /page/echo?after");
    EXPECT_EQ(stringValue(requests("/page/echo?after")[0], "method"), "GET");
}

TEST_F(PageLoading, FailuresCarryTheirCodes) {
    startServer();
    const struct {
        std::string url, told;
    } cases[] = {
        {"https://127.0.0.1:1/", "failed before commit -1"},  // a port that pages may not use
        {"https://127.0.0.1:5/", "failed before commit -1004"},
        {"https://nowhere.invalid/", "failed before commit -1003"},
        {url("/fault/no-reply"), "failed before commit -1005"},
        {url("/fault/silent"), "failed before commit -1001"},
        {url("/page/download"), "failed before commit -1"},
        {"http" + url("/page/echo").substr(5), "failed before commit -1"},  // never goes out
    };
    for (const auto& tried : cases) {
        for (const bool form : {false, true}) {
            SCOPED_TRACE(tried.url + (form ? " with a body" : ""));
            PageRequest request{.url = tried.url};
            if (tried.told.ends_with("-1001"))
                request.timeout = std::chrono::seconds(1);
            if (form) {
                request.method = "POST";
                request.body = "a=b";
            }
            const std::string told = load(request);
            EXPECT_TRUE(told.ends_with("start, " + tried.told))
                << told << ": " << delegate.errors.back().description;
        }
    }
    // Once with a body, and never again by itself.
    EXPECT_EQ(requests("/fault/no-reply").size(), 2u);
    EXPECT_EQ(requests("/fault/silent").size(), 2u);
    for (const char* notOne : {"", "no url", "https://[::1", "/path"})
        EXPECT_EQ(load({.url = notOne}), "failed before commit -1") << notOne;
    EXPECT_EQ(evaluate("40 + 2"), "42");
}

TEST_F(PageLoading, APageMayTakeLongerOverItsOwnLoadsButNotForEver) {
    startServer();
    view = application->makeWebView({.scriptMessageHandlerName = "MACLoginAgent",
                                     .delegate = &delegate,
                                     .pagePatience = std::chrono::seconds(7)});
    LogCapture log;
    const PageRequest first{.url = url("/page/echo"), .timeout = std::chrono::seconds(3)};
    const auto ownLoad = [&](const std::string& path) {
        load(first);
        evaluate("location = '" + path + "'; 1");
        EXPECT_TRUE(
            until([this] { return delegate.count("finish") + delegate.count("failed") > 0; }));
        return delegate.take();
    };
    EXPECT_TRUE(ownLoad("/page/slow?seconds=4").ends_with("commit, finish /page/slow?seconds=4"));
    EXPECT_FALSE(log.has("timed out"));
    EXPECT_TRUE(ownLoad("/fault/silent").ends_with("start, failed before commit -1001"));
    EXPECT_TRUE(log.has("timed out, the page did not come within 7 s"));
}

}  // namespace
}  // namespace quorl::test
