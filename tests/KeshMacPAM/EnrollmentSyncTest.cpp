#include "EnrollmentFixture.h"
#include "EnrollmentReply.h"
#include "EnrollmentSync.h"
#include "OfflineMethods.h"
#include "TestServer.h"
#include "authenticators/TOTPAuthenticator.h"

#include <set>

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

using Records = std::map<std::string, Value>;

const Value policy = {{"MFA_NO_OF_FACTORS", 1},
                      {"OFFLINE_MFA_LIMIT_TYPE", 2},
                      {"OFFLINE_MFA_LIMIT_VALUE", 3},
                      {"ENABLED_AUTHS", {3}}};
const Value userData = {
    {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 3},
    {"LAST_ONLINE_MFA_TIME", 0},
    {"AUTH_ENROLLMENT",
     {{"3",
       {{"AUTH_DISPLAY_NAME", "App"},
        {"SECRET_KEY", "aXQKLBCJi8sDKkboi3kIxB455XAVsV50rgjT/MZ7Z2veqbWNB8VPJjlgP67Gv9oN"},
        {"ALGORITHM_TYPE", "SHA1"},
        {"EXPIRY_TIME", 30},
        {"DIGITS", 8},
        {"AUTH_VARIANCE", 0}}}}}};
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
    const std::string noTexts = "ENROLLED_USERS_LIST is no list of texts, all users are kept\n";
    const std::string unusable = "a record of user - alice@EXAMPLE that nobody could be verified";
    const Records both = {{alice, old}, {b, old}};
    enum class Ends { withTime, atOnce };

    // Both users are stored before each; the writes are those of the data file.
    const struct {
        Value reply;
        std::string line;
        Records after;
        std::size_t writes;
        Ends ends = Ends::withTime;
    } rows[] = {
        {data(whole, {alice, b}), done, {{alice, fresh}, {b, old}}, 3},
        {data(whole, {alice}), done, {{alice, fresh}}, 3},
        {data(whole, {alice, 7}), noTexts, {{alice, fresh}, {b, old}}, 1},
        {data(whole, "alice@EXAMPLE"), noTexts, {{alice, fresh}, {b, old}}, 1},
        {{{"OFFLINE_MFA_DATA", whole}}, done, {{alice, fresh}, {b, old}}, 1},
        {data(without(whole, "POLICY_DATA"), {}), noPolicy, both, 0, Ends::atOnce},
        {data(with(whole, "POLICY_DATA", "x"), {}), noPolicy, both, 0, Ends::atOnce},
        {data(without(whole, "USER_DATA"), {alice}), noUserData, {{alice, old}}, 2},
        {data(with(whole, "USER_DATA", {1}), {alice, b}), noUserData, both, 2},
        {data(with(whole, "POLICY_DATA", Value::object()), {alice, b}), unusable, both, 2},
        {data(with(whole, "DEEP", 1), {alice, b}), done, {{alice, fresh}, {b, old}}, 3},
        {data(without(whole, "USER_NAME"), {b}), noName, {{b, old}}, 2},
        {{{"ERROR_MSG", 0}, {"OFFLINE_MFA_DATA", whole}, {"ENROLLED_USERS_LIST", {b}}},
         "Error occured while sending req. to server\n",
         {{b, old}},
         2},
        {{{"INTERNAL_ERROR", "no\nuser"}, {"ENROLLED_USERS_LIST", {b}}},
         "Internal Error occured - no\\nuser\n",
         {{b, old}},
         2},
        {{{"INTERNAL_ERROR", {{"a", 1}}}}, "Internal Error occured - {\n", both, 0},
        {{{"ENROLLED_USERS_LIST", {b}}}, invalid, {{b, old}}, 2},
    };
    EnrollmentHandler handler(systemClock());
    for (const auto& row : rows) {
        std::filesystem::remove(getUserOfflineDataFilePath());
        store(alice, old);
        store(b, old);
        TestSandbox::write(replyFile, row.reply.dump());
        newLines();
        const bool synced = handler.getEnrollmentData(std::nullopt).has_value();
        EXPECT_EQ(synced, row.after.contains(alice) && row.after.at(alice) == fresh) << row.reply;
        const std::string log = newLines();
        EXPECT_EQ(count(log, "getEnrollmentData: " + row.line), 1U) << row.reply << "\n" << log;
        EXPECT_EQ(count(log, timeLine), row.ends == Ends::withTime) << row.reply;
        EXPECT_EQ(count(log, "data written to file successfully"), row.writes) << row.reply;
        Records after;
        for (const std::string& user : OfflineDataHandler::getEnrolledUserList())
            after[user] = without(stored(user), "LAST_SYNC_TIME");
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
    EnrollmentHandler handler(systemClock());
    newLines();
    handler.getEnrollmentData("t");
    EXPECT_EQ(count(newLines(), "getEnrollmentData: DEK is not present / Error occured"), 1U);
    EXPECT_FALSE(std::filesystem::exists(getUserOfflineDataFilePath()));

    const auto requests = server.requests().size();
    configure("AGENT_ID", "");
    handler.getEnrollmentData("t");
    EXPECT_EQ(count(newLines(), "getEnrollmentData :unable to get Agent key for API"), 1U);
    EXPECT_EQ(server.requests().size(), requests);
}

TEST_F(EnrollmentSyncTest, ListsOfFailedRepliesAndOfEarlierRequestsRemoveNobody) {
    const std::string b = "bob@EXAMPLE";
    const Value listed = {{"ENROLLED_USERS_LIST", {alice}}};
    const TestClock clock;
    const EnrollmentHandler opensTheLog(clock);
    for (const long status : {0L, 204L, 401L, 403L, 500L}) {
        store(b, old);
        newLines();
        takeAnswer({listed, status}, OfflineDataHandler::storedUsers(), clock);
        EXPECT_EQ(count(newLines(), fmt::format("of status {} is ignored\n", status)), 1U);
        EXPECT_EQ(stored(b), old) << status;
    }
    // Stored again while the server answered, though the clock stands still.
    for (int round = 0; round < 2; ++round) {
        const auto before = OfflineDataHandler::storedUsers();
        EXPECT_EQ(OfflineDataHandler::replaceRecord(b, fresh, clock),
                  OfflineDataHandler::Replaced::done);
        takeAnswer({listed, 200}, before, clock);
        EXPECT_EQ(OfflineDataHandler::getEnrolledUserList(), std::vector{b});
    }
    newLines();
    takeAnswer({listed, 200}, OfflineDataHandler::storedUsers(), clock);
    EXPECT_TRUE(OfflineDataHandler::getEnrolledUserList().empty());
    EXPECT_EQ(count(newLines(), "removeDeletedUsers :: removing user bob@EXAMPLE data\n"), 1U);
}

/// What one node of the good reply becomes.
std::vector<Value> mutationsOf(const Value& node) {
    Value deep = node;
    for (int levels = 0; levels < 20; ++levels)
        deep = Value::array({deep});
    std::vector<Value> all = {nullptr,
                              true,
                              Value::array(),
                              Value::object(),
                              -1,
                              -1'000'000,
                              "",
                              "x",
                              "A",
                              "====",
                              "mzxw6yq",
                              std::string(70'000, 'A'),
                              Value::array({node}),
                              Value{{"deeper", node}},
                              deep};
    if (node.is_number())
        all.push_back(node.dump());
    return all;
}

TEST_F(EnrollmentSyncTest, NoChangedReplyHarmsOrOpensARecord) {
    const std::string b = "bob@EXAMPLE";
    const TestClock clock(std::chrono::seconds(59));
    const Value reply = {{"OFFLINE_MFA_DATA", whole}};
    ASSERT_EQ(OfflineDataHandler::replaceRecord(alice, fresh, clock),
              OfflineDataHandler::Replaced::done);
    store(b, old);
    const Value before = stored(alice);
    const std::string file = TestSandbox::read(getUserOfflineDataFilePath());
    int stores = 0;
    int refusals = 0;
    const auto check = [&](const Value& mutant, const std::string& what) {
        TestSandbox::write(getUserOfflineDataFilePath(), file);
        const auto end = takeAnswer({mutant, 200}, {}, clock);
        ++(end.storedUser ? stores : refusals);
        ASSERT_EQ(stored(b), old) << what;
        const Value after = stored(alice);
        if (end.storedUser != alice) {
            ASSERT_EQ(after, before) << what;
            return;
        }
        const Value& sent = mutant["OFFLINE_MFA_DATA"];
        ASSERT_EQ(after["POLICY_DATA"], sent["POLICY_DATA"]) << what;
        ASSERT_EQ(after["USER_DATA"], sent["USER_DATA"]) << what;
        const auto record = OfflineRecord::read(*RecordParts::of(after));
        ASSERT_TRUE(record && record->limits.usedUp() && record->noOfFactors >= 1) << what;
        auto methods = offlineMethods(*record, accessKey, clock).value_or(OfflineMethods());
        for (const auto& [id, authenticator] : methods.authenticators) {
            // The empty key's codes at second 59, by Python's hmac.
            for (const char* code : {"812658", "0812658", "30812658", "230812658"})
                ASSERT_FALSE(authenticator.matchedStep(code)) << what;
        }
    };
    std::set<std::string> nodes;
    const Value leaves = reply.flatten();
    for (const auto& [pointer, unused] : leaves.items())
        for (Value::json_pointer at(pointer); !at.empty(); at.pop_back())
            nodes.insert(at.to_string());
    for (const std::string& name : nodes) {
        const Value::json_pointer at(name);
        for (const Value& changed : mutationsOf(reply[at])) {
            Value mutant = reply;
            mutant[at] = changed;
            check(mutant, name + " = " + changed.dump().substr(0, 60));
        }
        Value dropped = reply;
        Value& parent = dropped[at.parent_pointer()];
        if (parent.is_object())
            parent.erase(at.back());
        else
            parent.push_back(reply[at]);
        check(dropped, name + " dropped, or twice");
    }
    EXPECT_GT(stores, 50);
    EXPECT_GT(refusals, 50);
}

}  // namespace
}  // namespace quorl::test
