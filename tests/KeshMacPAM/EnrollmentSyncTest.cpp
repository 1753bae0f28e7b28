#include "EnrollmentFixture.h"
#include "TestServer.h"
#include "authenticators/TOTPAuthenticator.h"

namespace quorl::test {
namespace {

const std::string alice = "alice@EXAMPLE";
const std::string timeLine = "EnrollmentHandler::getEnrollmentData : total time taken to sync is ";

class EnrollmentSyncTest : public EnrollmentTest {
  protected:
    EnrollmentSyncTest() {
        trustTestAuthority();
        configure("SERVERNAME", "localhost");
        configure("RESTRICT_BADCERT", "true");
    }
    static void use(const TestServer& server) {
        configure("PORTNUMBER", std::to_string(server.port()));
    }
};

TEST_F(EnrollmentSyncTest, BringsAUserWhoseCodesAreTakenThen) {
    const auto users = sandbox.root() / "users.json";
    TestSandbox::write(users, R"({"alice@EXAMPLE": {"enrolled": true,
        "secret": "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ",
        "policy": {"OFFLINE_MFA_LIMIT_TYPE": 2, "OFFLINE_MFA_LIMIT_VALUE": 3},
        "counters": {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS": 2},
        "authenticators": {"3": {"name": "App", "digits": 8, "variance": 0,
                                 "secret": "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"}}}})");
    const TestServer server("server", {"--agent-id", "1001", "--access-key", accessKey, "--users",
                                       users, "--token", "tok=alice@EXAMPLE"});
    use(server);
    store(alice, {{"EARLIER", 1}, {"USER_DATA", {{"EARLIER", 1}}}});
    store("left@EXAMPLE", {{"USER_DATA", {{"EARLIER", 1}}}});
    std::filesystem::remove(getDEKFilePath());  // the first sync makes it

    EnrollmentHandler handler;
    newLines();
    handler.getEnrollmentData("tok");
    const std::string log = newLines();
    EXPECT_EQ(count(log, "getEnrollmentData: Sync user offline data - alice@EXAMPLE\n"), 1U) << log;
    EXPECT_EQ(count(log, timeLine), 1U);
    EXPECT_EQ(server.requests().back()["body"], "DATA_ACCESS_TOKEN=tok");

    EXPECT_EQ(OfflineDataHandler::getEnrolledUserList(), std::vector{alice});
    const Value record = stored(alice);
    EXPECT_FALSE(record.contains("EARLIER"));
    EXPECT_FALSE(record["USER_DATA"].contains("EARLIER"));
    const TestClock clock(std::chrono::seconds(59));
    const TOTPAuthenticator app(&record["USER_DATA"]["AUTH_ENROLLMENT"]["3"], accessKey, clock);
    EXPECT_TRUE(app.verifyTOTP({{"AUTH_CODE", "94287082"}}));

    // One attempt is left of the three.
    EXPECT_EQ(handler.preAuth(alice), PreAuthResult::allowed);
    EXPECT_FALSE(handler.isAttemptLimitedReached(alice));
    EXPECT_TRUE(handler.isAttemptLimitedReached(alice));
    EXPECT_EQ(handler.preAuth(alice), PreAuthResult::limitReached);
    handler.resetOfflineLimit(alice);
    EXPECT_EQ(handler.preAuth(alice), PreAuthResult::allowed);

    const auto headers = handler.getAddEnrollmentHeader();
    ASSERT_TRUE(headers);
    EXPECT_TRUE(stringValue(*headers, "Authorization").value_or("").starts_with("Basic 1001:"));
}

using Records = std::map<std::string, Value>;

const Value policy = {{"OFFLINE_MFA_LIMIT_TYPE", 1}};
const Value userData = {{"AUTH_ENROLLMENT", Value::object()}};
const Value whole = {{"USER_NAME", alice}, {"POLICY_DATA", policy}, {"USER_DATA", userData}};
const Value old = {{"USER_DATA", {{"EARLIER", 1}}}};
const Value fresh = {{"POLICY_DATA", policy}, {"USER_DATA", userData}};

Value without(Value data, const char* key) {
    data.erase(key);
    return data;
}
Value with(Value data, const char* key, const Value& value) {
    data[key] = value;
    return data;
}

TEST_F(EnrollmentSyncTest, StoresAndPrunesAsTheReplySays) {
    const auto replyFile = sandbox.root() / "reply.json";
    TestSandbox::write(replyFile, "{}");
    const TestServer server("server", {"--reply-file", replyFile});
    use(server);
    const std::string b = "bob@EXAMPLE";
    const std::string done = "Sync user offline data - alice@EXAMPLE\n";
    const std::string invalid = "Invalid response from server\n";
    const std::string noName = "User Name is not present in response\n";
    const std::string noPolicy = "policy Data is not present in response of user - alice@EXAMPLE\n";
    const std::string noUserData =
        "User Auth Data is not present in response of user - alice@EXAMPLE\n";
    const auto data = [](const Value& offlineData, const Value& users) {
        return Value{{"OFFLINE_MFA_DATA", offlineData}, {"ENROLLED_USERS_LIST", users}};
    };
    enum class Ends { withTime, atOnce };

    // Both users are stored before each; the writes are those of the data file.
    const struct {
        Value reply;
        std::string line;
        Records after;
        std::size_t writes;
        Ends ends = Ends::withTime;
    } rows[] = {
        {data(whole, {alice, b}), done, {{alice, fresh}, {b, old}}, 5},
        {data(whole, {alice}), done, {{alice, fresh}}, 5},
        {data(whole, Value::array()), done, {}, 5},
        {data(whole, {"ALICE@EXAMPLE", 7, nullptr, {b}}), done, {}, 5},
        {data(whole, "alice@EXAMPLE"),
         "ENROLLED_USERS_LIST is no list",
         {{alice, fresh}, {b, old}},
         3},
        {{{"OFFLINE_MFA_DATA", whole}}, done, {{alice, fresh}, {b, old}}, 3},
        {data(without(whole, "POLICY_DATA"), {alice}), noPolicy, {{b, old}}, 1, Ends::atOnce},
        {data(with(whole, "POLICY_DATA", "x"), {alice}), noPolicy, {{b, old}}, 1, Ends::atOnce},
        {data(without(whole, "USER_DATA"), {alice, b}), noUserData, {{b, old}}, 4},
        {data(with(whole, "USER_DATA", {1}), {alice, b}), noUserData, {{b, old}}, 4},
        {data(without(whole, "USER_NAME"), {b}), noName, {{b, old}}, 2},
        {data(with(whole, "USER_NAME", {alice}), {b}), noName, {{b, old}}, 2},
        {data("x", {b}), noName, {{b, old}}, 2},
        {data(nullptr, {b}), noName, {{b, old}}, 2},
        {{{"ERROR_MSG", 0}, {"OFFLINE_MFA_DATA", whole}, {"ENROLLED_USERS_LIST", {b}}},
         "Error occured while sending req. to server\n",
         {{b, old}},
         2},
        {{{"INTERNAL_ERROR", "no\nuser"}, {"ENROLLED_USERS_LIST", {b}}},
         "Internal Error occured - no\\nuser\n",
         {{b, old}},
         2},
        {{{"INTERNAL_ERROR", {{"a", 1}}}},
         "Internal Error occured - {\n",
         {{alice, old}, {b, old}},
         0},
        {{{"ENROLLED_USERS_LIST", {b}}}, invalid, {{b, old}}, 2},
        {Value::object(), invalid, {{alice, old}, {b, old}}, 0},
        {nullptr, invalid, {{alice, old}, {b, old}}, 0},
        {{"ENROLLED_USERS_LIST"}, invalid, {{alice, old}, {b, old}}, 0},
    };
    EnrollmentHandler handler;
    for (const auto& row : rows) {
        OfflineDataHandler::removeDeletedUsers(OfflineDataHandler::getEnrolledUserList(), {});
        store(alice, old);
        store(b, old);
        TestSandbox::write(replyFile, row.reply.dump());
        newLines();
        handler.getEnrollmentData(std::nullopt);
        const std::string log = newLines();
        EXPECT_EQ(count(log, "getEnrollmentData: " + row.line), 1U) << row.reply << "\n" << log;
        EXPECT_EQ(count(log, timeLine), row.ends == Ends::withTime) << row.reply;
        EXPECT_EQ(count(log, "data written to file successfully"), row.writes) << row.reply;
        Records after;
        for (const std::string& user : OfflineDataHandler::getEnrolledUserList())
            after[user] = stored(user);
        EXPECT_EQ(after, row.after) << row.reply;
    }
    EXPECT_EQ(server.requests().back()["body"], "");

    handler.getEnrollmentData("a b&c=%");
    EXPECT_EQ(server.requests().back()["body"], "DATA_ACCESS_TOKEN=a b&c=%");
}

TEST_F(EnrollmentSyncTest, WithoutAKeyForTheStoreOrTheServerNothingIsTouched) {
    const auto replyFile = sandbox.root() / "reply.json";
    TestSandbox::write(replyFile, Value{{"OFFLINE_MFA_DATA", whole}}.dump());
    const TestServer server("server", {"--reply-file", replyFile});
    use(server);
    std::filesystem::remove(getDEKFilePath());
    std::filesystem::create_directory(getDEKFilePath());
    EnrollmentHandler handler;
    newLines();
    handler.getEnrollmentData("t");
    const std::string noStoreKey = newLines();
    EXPECT_EQ(count(noStoreKey,
                    "getEnrollmentData: DEK is not present / Error occured while "
                    "generating\n"),
              1U)
        << noStoreKey;
    EXPECT_EQ(count(noStoreKey, timeLine), 1U);
    EXPECT_FALSE(std::filesystem::exists(getUserOfflineDataFilePath()));

    const auto requests = server.requests().size();
    configure("AGENT_ID", "");
    handler.getEnrollmentData("t");
    const std::string noServerKey = newLines();
    EXPECT_EQ(count(noServerKey,
                    "EnrollmentHandler::getEnrollmentData :unable to get Agent key "
                    "for API protection\n"),
              1U);
    EXPECT_EQ(count(noServerKey, timeLine), 1U);
    EXPECT_EQ(server.requests().size(), requests);
}

}  // namespace
}  // namespace quorl::test
