#include "HttpClient.h"
#include "TestServer.h"

#include <future>

namespace quorl::test {
namespace {

TEST(HttpClientSlowTest, ASilentConnectionEndsAfterFifteenSecondsAndASlowOneDoesNot) {
    trustTestAuthority();
    const TestServer server;
    const TestServer speechless("server", {"--silent-handshake"});
    const auto timed = [](const std::string& url) {
        return std::async(std::launch::async, [url] {
            const auto start = std::chrono::steady_clock::now();
            const Value result =
                HttpClient(CertificatePolicy::restrict).makeSyncRequest("GET", url, "", "", {});
            return std::pair(result, std::chrono::steady_clock::now() - start);
        });
    };
    auto silent = timed(server.url("/fault/silent"));
    auto noHandshake = timed(speechless.url("/"));
    auto slow = timed(server.url("/fault/drip"));
    for (auto* dead : {&silent, &noHandshake}) {
        const auto [result, duration] = dead->get();
        EXPECT_EQ(result, Value({{"ERROR_MSG", "Timeout was reached"}}));
        EXPECT_GE(duration, std::chrono::seconds(15));
        EXPECT_LT(duration, std::chrono::seconds(25));
    }
    EXPECT_EQ(slow.get().first, Value({{"RESPONSE_TEXT", "one"}}));
}

}  // namespace
}  // namespace quorl::test
