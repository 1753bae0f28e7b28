#include "EnrollmentFixture.h"

#include <sys/wait.h>

namespace quorl::test {
namespace {

using std::chrono::seconds;

const std::string user = "ada@CORP";
const std::string reachedTail =
    "EnrollmentHandler::preAuth : User Offline MFA limit reached, redirecting to Error Page\n";

class OfflineLimitsTest : public EnrollmentTest {
  protected:
    static Value record(const Value& type, const Value& value, const Value& attempts,
                        const Value& last) {
        return {
            {"POLICY_DATA", {{"OFFLINE_MFA_LIMIT_TYPE", type}, {"OFFLINE_MFA_LIMIT_VALUE", value}}},
            {"USER_DATA",
             {{"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", attempts},
              {"LAST_ONLINE_MFA_TIME", last},
              {"AUTH_ENROLLMENT", {{"3", {{"DIGITS", 6}}}}}}}};
    }
    Value attempts() const {
        return stored(user).value("/USER_DATA/SUCCESSFUL_OFFLINE_MFA_ATTEMPTS"_json_pointer,
                                  Value());
    }
    TestClock clock;
};

TEST_F(OfflineLimitsTest, HoldToTheLastAttemptAndTheLastSecond) {
    constexpr std::int64_t unit = 864'000;
    constexpr std::int64_t last = 1'700'000'000;
    constexpr auto allowed = PreAuthResult::allowed;
    constexpr auto reached = PreAuthResult::limitReached;
    const struct {
        Value type, value, attempts, last;
        std::int64_t now;
        PreAuthResult result;
    } rows[] = {
        {2, 3, 0, 0, last, allowed},
        {2, 3, 2, 0, last, allowed},
        {2, 3, 3, 0, last, reached},
        {2, 3, 4, 0, last, reached},
        {2, 0, 0, last, last, reached},
        {2, -1, 0, last, last, reached},
        {2, nullptr, nullptr, last, last, reached},
        {2, 3.9, 3, last, last, reached},
        {1, 1, 99, last, last + unit, allowed},
        {1, 1, 99, last, last + unit + 1, reached},
        {1, 3, 99, last, last + 3 * unit, allowed},
        {1, 3, 99, last, last + 3 * unit + 1, reached},
        {1, 0, 0, last, last, allowed},
        {1, 0, 0, last, last + 1, reached},
        {1, 1, 0, nullptr, last, reached},
        {1, 1, 0, last, 0, allowed},
        {1, INT64_MAX, 0, INT64_MAX, last, allowed},
        {1, UINT64_MAX, 0, last, last, allowed},
        {1, INT64_MAX / unit + 1, 0, last, last, allowed},
        {1, INT64_MIN, 0, INT64_MIN, last, reached},
        {1, INT64_MIN, 0, INT64_MAX, last, reached},
        {0, 0, 99, 0, last, allowed},
        {3, 0, 99, 0, last, allowed},
        {-1, 0, 99, 0, last, allowed},
        {"2", 0, 99, 0, last, allowed},
    };
    const EnrollmentHandler handler(clock);
    for (const auto& row : rows) {
        const auto what =
            fmt::format("type {} value {} attempts {} last {} now {}", row.type.dump(),
                        row.value.dump(), row.attempts.dump(), row.last.dump(), row.now);
        store(user, record(row.type, row.value, row.attempts, row.last));
        clock.set(seconds(row.now) + std::chrono::milliseconds(999));
        newLines();
        EXPECT_EQ(handler.preAuth(user), row.result) << what;
        const std::string log = newLines();
        EXPECT_EQ(count(log, "User can Perform Offline MFA \n"), row.result == allowed) << what;
        EXPECT_EQ(count(log, reachedTail), row.result == reached) << what;
    }
}

TEST_F(OfflineLimitsTest, SayWhatWasReached) {
    const EnrollmentHandler handler(clock);
    clock.set(seconds(2'000'000));
    store(user, record(2, 3, 5, 0));
    newLines();
    handler.preAuth(user);
    EXPECT_NE(newLines().find("EnrollmentHandler::preAuth : User Offline MFA limit reached "
                              "validUserAttempts 5, attempt limit in policy: 3\n"),
              std::string::npos);
    store(user, record(1, 2, 5, 7));
    newLines();
    handler.preAuth(user);
    EXPECT_NE(newLines().find(
                  "EnrollmentHandler::preAuth : User Offline MFA limit reached, it has been 2 days "
                  "since you performed online verification. Last online time: 7\n"),
              std::string::npos);
}

TEST_F(OfflineLimitsTest, AreNotReadFromARecordThatIsNotWhole) {
    EnrollmentHandler handler(clock);
    newLines();
    EXPECT_EQ(handler.preAuth(user), PreAuthResult::noOfflineData);
    EXPECT_FALSE(handler.isAttemptLimitedReached(user));
    handler.resetOfflineLimit(user);
    const std::string unknown = newLines();
    for (const char* line :
         {"EnrollmentHandler::preAuth : User policy data not found / user not enrolled \n",
          "EnrollmentHandler::resetOfflineLimit : Offline data not found for the user\n"})
        EXPECT_EQ(count(unknown, line), 1U) << line;
    EXPECT_EQ(count(unknown, "getOfflineData::Error reading from file\n"), 3U);

    const Value whole = record(2, 3, 1, 0);
    for (const char* key : {"POLICY_DATA", "USER_DATA"}) {
        for (const Value& junk : {Value(), Value("x"), Value(5), Value::array({1})}) {
            Value broken = whole;
            broken[key] = junk;
            store(user, broken);
            newLines();
            EXPECT_EQ(handler.preAuth(user), PreAuthResult::noOfflineData) << key << junk;
            EXPECT_EQ(count(newLines(), "preAuth : User policy data not found \n"), 1U);
            EXPECT_FALSE(handler.isAttemptLimitedReached(user));
            EXPECT_EQ(stored(user), broken);
        }
    }
    newLines();
    handler.resetOfflineLimit(user);  // the last one lacks user data
    EXPECT_EQ(count(newLines(), "resetOfflineLimit : User auth data not found\n"), 1U);
}

TEST_F(OfflineLimitsTest, EverySuccessIsCountedUntilTheLimitOfAttempts) {
    EnrollmentHandler handler(clock);
    const struct {
        Value type, value, attempts;
        bool reached;
        Value after;
    } rows[] = {{2, 3, 2, false, 3},
                {2, 3, 3, true, 3},
                {2, 0, nullptr, true, nullptr},
                {1, 0, 7, false, 8},
                {0, 0, nullptr, false, 1},
                {9, 0, "x", false, 1},
                {0, 0, INT64_MAX, false, INT64_MAX}};
    for (const auto& row : rows) {
        store(user, record(row.type, row.value, row.attempts, 5));
        newLines();
        EXPECT_EQ(handler.isAttemptLimitedReached(user), row.reached) << row.type;
        const std::string log = newLines();
        EXPECT_EQ(count(log, fmt::format("EnrollmentHandler::preAuth : User Offline MFA limit "
                                         "reached validUserAttempts : {}, attempt limit in "
                                         "policy: {}\n",
                                         row.attempts.is_null() ? 0 : 3, row.value.dump())),
                  row.reached)
            << log;
        EXPECT_EQ(stored(user), record(row.type, row.value, row.after, 5));
    }
}

TEST_F(OfflineLimitsTest, NoSuccessIsLostWhenProcessesCountAtOnce) {
    store(user, record(2, 1000, 0, 0));
    std::vector<pid_t> children;
    for (int i = 0; i < 3; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            EnrollmentHandler handler(clock);
            for (int successes = 0; successes < 15; ++successes)
                handler.isAttemptLimitedReached(user);
            _exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children)
        waitpid(child, nullptr, 0);
    EXPECT_EQ(attempts(), 45);
}

TEST_F(OfflineLimitsTest, StartAnewAfterAnOnlineVerification) {
    EnrollmentHandler handler(clock);
    clock.set(std::chrono::milliseconds(1'234'567'999));
    store(user, record(2, 3, 3, 5));
    newLines();
    handler.resetOfflineLimit(user);
    EXPECT_EQ(stored(user), record(2, 3, 0, 1'234'567));
    EXPECT_EQ(
        count(newLines(), "EnrollmentHandler::resetOfflineLimit : Going to rest offline limit.\n"),
        1U);
    EXPECT_EQ(handler.preAuth(user), PreAuthResult::allowed);
}

TEST_F(OfflineLimitsTest, NothingIsReadOrCountedWhileSwitchedOff) {
    store(user, record(2, 3, 3, 5));
    for (const char* setting : {"false", "", "1", "TRUE "}) {
        configure("OFFLINE_MFA", setting);
        EnrollmentHandler handler(clock);
        newLines();
        EXPECT_EQ(handler.preAuth(user), PreAuthResult::offlineMFADisabled);
        EXPECT_FALSE(handler.isAttemptLimitedReached(user));
        handler.resetOfflineLimit(user);
        const std::string log = newLines();
        for (const char* operation : {"preAuth", "isAttemptLimitedReached", "resetOfflineLimit"})
            EXPECT_EQ(count(log, fmt::format("EnrollmentHandler::{} : Offline MFA not enabled\n",
                                             operation)),
                      1U);
        EXPECT_EQ(count(log, "\n"), 3U) << log;
    }
    EXPECT_EQ(stored(user), record(2, 3, 3, 5));
}

}  // namespace
}  // namespace quorl::test
