#include "HttpClient.h"
#include "TestServer.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HttpClientTest : public testing::Test {
  protected:
    HttpClientTest() { trustTestAuthority(); }

    static Value get(const std::string& url,
                     CertificatePolicy certificates = CertificatePolicy::restrict) {
        return HttpClient(certificates).makeSyncRequest("GET", url, "", "", Value::object());
    }
    static Value post(const std::string& url, const std::string& form,
                      const Value& headers = Value::object()) {
        return HttpClient(CertificatePolicy::restrict)
            .makeSyncRequest("POST", url, "", form, headers);
    }
};

TEST_F(HttpClientTest, OnlyTrustedCertificatesPassUnlessAnyIsAllowed) {
    struct Case {
        const char* certificate;
        const char* host;
        bool isTrusted;
    };
    for (const Case& c :
         {Case{"server", "localhost", true}, Case{"server", "127.0.0.1", true},
          Case{"name-only", "localhost", true}, Case{"name-only", "127.0.0.1", false},
          Case{"common-name", "localhost", false}, Case{"wrong-host", "localhost", false},
          Case{"self-signed", "localhost", false}, Case{"expired", "localhost", false},
          Case{"not-yet-valid", "localhost", false}}) {
        SCOPED_TRACE(std::string(c.certificate) + " for " + c.host);
        const TestServer server(c.certificate);
        const std::string url = server.url("/fault/failure", c.host);
        const Value success = {{"result", "failure"}};

        const LogCapture restricted;
        EXPECT_EQ(get(url), c.isTrusted ? success : Value({{"ERROR_MSG", "BAD_CERT"}}));
        EXPECT_EQ(server.requests().size(), c.isTrusted ? 1u : 0u);
        EXPECT_EQ(restricted.count("not a trusted certificate in keychain, going to block"),
                  c.isTrusted ? 0u : 1u);
        EXPECT_EQ(get(url, CertificatePolicy::allowAny), success);
    }
}

TEST_F(HttpClientTest, TheBodyDecidesTheResultAndTheStatusNothing) {
    const TestServer server;
    const std::string json = "/reply?type=application/json";
    const std::string text = "/reply?type=text/html";
    const auto nested = [](int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    const Value noBody = {{"ERROR_MSG", "No response received from the server"}};
    const struct {
        std::string path, body;
        Value result;
    } cases[] = {
        {json, R"({"a": [1, true, null]})", {{"a", {1, true, nullptr}}}},
        {"/reply?type=Application/JSON;charset=utf-8", R"(["]"])", Value::array({"]"})},
        {json, R"({"a": )", nullptr},
        {json, "\"text alone\"", nullptr},
        {json, "{\"a\": \"\xff\"}", nullptr},
        {json, nested(513), nullptr},
        {json, nested(512), Value::parse(nested(512))},
        {"/reply?type=application/jsonp", "{}", {{"RESPONSE_TEXT", "{}"}}},
        {text, "caf\xc3\xa9", {{"RESPONSE_TEXT", "caf\xc3\xa9"}}},
        {text, "caf\xe9", {{"RESPONSE_TEXT", nullptr}}},
        {text, "", noBody},
        {"/fault/empty-body", "", noBody},
        {"/nope",
         "",
         {{"RESPONSE_TEXT",
           "<!doctype html><title>Not found</title>"
           "<p>No such page.</p>"}}},
    };
    for (const auto& [path, body, result] : cases)
        EXPECT_EQ(post(server.url(path), body), result) << path << " " << body;
}

TEST_F(HttpClientTest, ABrokenExchangeIsAnErrorInTheTransportsWords) {
    const TestServer server;
    for (const auto& [url, code] : {std::pair(server.url("/fault/cut-body"), 18),
                                    {server.url("/fault/no-reply"), 52},
                                    {server.url("/fault/huge-body"), 63},
                                    {server.url("/fault/endless-trailers"), 63},
                                    {"https://127.0.0.1:1/", 7},
                                    {"https://no-such-host.invalid/", 6},
                                    {"http://127.0.0.1:1/", 1},
                                    {"https://:8443", 3}}) {
        const LogCapture log;
        const Value result = get(url);
        const std::string message = result.value("ERROR_MSG", "");
        EXPECT_FALSE(message.empty() || message == "BAD_CERT") << url << result;
        EXPECT_TRUE(log.has("HttpClient: error -  " + message + "\n")) << log.text();
        EXPECT_TRUE(log.has(fmt::format("HttpClient: errorCode -  {}\n", code))) << log.text();
        EXPECT_TRUE(log.has("HttpClient: failure reason -  ")) << log.text();
    }
}

TEST_F(HttpClientTest, EachMethodCarriesWhatIsItsOwn) {
    const TestServer server;
    const std::string formType = "application/x-www-form-urlencoded";
    const struct {
        const char *type, *path, *parameters, *form, *target, *body;
        std::vector<std::string> contentType;
    } cases[] = {
        {"GET", "/nope", "a=b c", "f=1", "/nope?a=b%2520c", "", {}},
        {"GET", "/nope", "a=1&b=2", "", "/nope?a=1&b=2", "", {}},
        {"GET", "/a/../b\"", "", "", "/a/../b%22", "", {}},
        {"POST", "/nope", "a=1", "a=b c&d=\xc3\xa9", "/nope", "a=b c&d=\xc3\xa9", {formType}},
        {"POST", "/nope?x=%20", "", "", "/nope?x=%2520", "", {}},
        {"PUT", "/nope", "a=1", "a=1", "/nope", "", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " " + c.target);
        HttpClient(CertificatePolicy::restrict)
            .makeSyncRequest(c.type, server.url(c.path), c.parameters, c.form, {});
        const Value request = server.requests().back();
        EXPECT_EQ(request["method"], c.type);
        EXPECT_EQ(request["target"], c.target);
        EXPECT_EQ(request["body"], c.body);
        EXPECT_EQ(TestServer::headers(request, "Content-Type"), c.contentType);
    }
}

TEST_F(HttpClientTest, TheCallersHeadersReplaceAndNothingIsSmuggledIn) {
    const TestServer server;
    post(server.url("/nope"), "{}",
         {{"Content-Type", "text/plain"}, {"X-Empty", ""}, {"X-Number", 7}, {"X-Text", "one two"}});
    const Value request = server.requests().back();
    EXPECT_THAT(TestServer::headers(request, "content-type"), ElementsAre("text/plain"));
    EXPECT_THAT(TestServer::headers(request, "X-Empty"), ElementsAre(""));
    EXPECT_THAT(TestServer::headers(request, "X-Text"), ElementsAre("one two"));
    EXPECT_THAT(TestServer::headers(request, "X-Number"), IsEmpty());
    for (const Value& unsendable :
         {Value{{"X-Split", "a\r\nX-Smuggled: b"}}, Value{{"X-Split\r\nX-Smuggled", "b"}}})
        EXPECT_TRUE(member(post(server.url("/nope"), "", unsendable), "ERROR_MSG"));
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(HttpClientTest, RedirectsAreFollowedAsABrowserDoes) {
    const TestServer server;
    const Value result = post(server.url("/redirect?to=/fault/failure"), "a=1");
    EXPECT_EQ(result, Value({{"result", "failure"}}));
    const std::vector<Value> requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0]["method"], "POST");
    EXPECT_EQ(requests[1]["method"], "GET");
    EXPECT_EQ(requests[1]["body"], "");

    post(server.url("/redirect?status=307&to=/fault/failure"), "a=1");
    EXPECT_EQ(server.requests().back()["method"], "POST");
    EXPECT_EQ(server.requests().back()["body"], "a=1");
}

TEST_F(HttpClientTest, NobodyAnswersInTheServersPlace) {
    const TestServer server;
    const TestServer other;
    const std::pair<std::string, int> cases[] = {
        {server.url("/fault/failure", "127.0.0.1"), 47},
        {other.url("/fault/failure"), 47},
        {"http://localhost:1/", 1},
        {"https://me@LOCALHOST:" + std::to_string(server.port()) + "/fault/failure", 0}};
    for (const char* status : {"302", "307"}) {
        for (const auto& [target, code] : cases) {
            const LogCapture log;
            const Value result =
                post(server.url("/redirect?status=" + std::string(status) + "&to=" + target),
                     "DATA_ACCESS_TOKEN=t", {{"Authorization", "Basic 1:2"}});
            EXPECT_EQ(member(result, "ERROR_MSG") == nullptr, code == 0) << target << result;
            EXPECT_EQ(log.count(fmt::format("HttpClient: errorCode -  {}\n", code)),
                      code == 0 ? 0u : 1u)
                << target << log.text();
        }
    }
    EXPECT_TRUE(other.requests().empty());
    EXPECT_EQ(server.requests().size(), 2 * std::size(cases) + 2);
}

TEST_F(HttpClientTest, ACallEndsAtItsLimitWhateverTheServerDoes) {
    const TestServer server;
    for (const char* path : {"/fault/endless-drip", "/fault/silent"}) {
        const LogCapture log;
        const auto start = std::chrono::steady_clock::now();
        HttpClient client(CertificatePolicy::restrict, {.total = std::chrono::milliseconds(2500)});
        EXPECT_EQ(client.makeSyncRequest("GET", server.url(path), "", "", {}),
                  Value({{"ERROR_MSG", "Timeout was reached"}}));
        const auto taken = std::chrono::steady_clock::now() - start;
        EXPECT_GE(taken, std::chrono::milliseconds(2400)) << path;
        EXPECT_LT(taken, std::chrono::seconds(10)) << path;
        EXPECT_EQ(log.count("HttpClient: failure reason -  "), 1u);
    }
}

}  // namespace
}  // namespace quorl::test
