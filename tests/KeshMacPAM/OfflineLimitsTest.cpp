#include "EnrollmentFixture.h"
#include "OfflineLimits.h"
#include "Subprocess.h"

namespace quorl::test {
namespace {

using std::chrono::seconds;

const std::string user = "ada@CORP";

TEST(OfflineLimitNotice, CountsDownAndWarns) {
    constexpr std::int64_t day = 86400;
    constexpr std::int64_t now = 100 * day;
    const struct {
        std::int64_t type, value, attempts, last;
        std::int64_t remaining;
        bool low;
    } cases[] = {
        {limitAttempts, 10, 5, 0, 5, true},
        {limitAttempts, 10, 4, 0, 6, false},
        {limitDays, 7, 0, now - (4 * day + 23 * 3600), 3, true},
        {limitDays, 7, 0, now - (3 * day + 23 * 3600), 4, false},
        {limitDays, 7, 0, now + day - 1, 7, false},
        {limitDays, INT64_MIN, 0, now - day, INT64_MIN, true},
        {limitDays, 0, 0, INT64_MIN, -106'751'991'167'400, true},
        {limitAttempts, INT64_MAX, -1, 0, INT64_MAX, false},
        {3, 10, 0, 0, 0, false},
    };
    for (const auto& [type, value, attempts, last, remaining, low] : cases) {
        OfflineLimits limits;
        limits.type = type;
        limits.value = value;
        limits.attempts = attempts;
        limits.lastOnlineTime = last;
        const LimitNotice notice = limits.notice(seconds(now));
        EXPECT_EQ(notice.remaining, remaining);
        EXPECT_EQ(notice.low, low) << remaining;
        EXPECT_EQ(notice.labelKey.empty(), type == 3);
    }
}

class OfflineLimitsTest : public EnrollmentTest {
  protected:
    static Value record(const Value& type, const Value& value, const Value& attempts,
                        const Value& last) {
        return {{"POLICY_DATA",
                 {{"MFA_NO_OF_FACTORS", 1},
                  {"OFFLINE_MFA_LIMIT_TYPE", type},
                  {"OFFLINE_MFA_LIMIT_VALUE", value}}},
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
        {2, 3, 3, 0, last, reached},
        {2, 0, 0, last, last, reached},
        {"2", "3", "3", last, last, reached},
        {"2", "3", "2", "0", last, allowed},
        {1, 1, 99, last, last + unit, allowed},
        {1, 1, 99, last, last + unit + 1, reached},
        {1, 3, 99, last, last + 3 * unit + 1, reached},
        {1, 0, 0, last, last + 1, reached},
        {1, 1, 0, last, last - 86'400, allowed},
        {1, 1, 0, last, last - 86'401, reached},
        {2, 3, 0, last, last - 86'401, reached},
        {0, 3, 0, last, 0, allowed},
        {1, INT64_MAX, 0, INT64_MAX, last, reached},
        {1, UINT64_MAX, 0, last, last, allowed},
        {1, INT64_MAX / unit + 1, 0, last, last, allowed},
        {0, 0, 99, 0, last, allowed},
    };
    const EnrollmentHandler handler(clock);
    for (const auto& row : rows) {
        const auto what =
            fmt::format("type {} value {} attempts {} last {} now {}", row.type.dump(),
                        row.value.dump(), row.attempts.dump(), row.last.dump(), row.now);
        store(user, record(row.type, row.value, row.attempts, row.last));
        clock.set(seconds(row.now) + std::chrono::milliseconds(999));
        EXPECT_EQ(handler.preAuth(user), row.result) << what;
    }
}

TEST_F(OfflineLimitsTest, ARecordWithoutOneOfItsNumbersIsNotUsed) {
    EnrollmentHandler handler(clock);
    const Value whole = record(2, 3, 3, 0);
    const Value junk[] = {nullptr, "", "x", "3x", "-1", true, -1, -0.5, Value::array({1}), "9e9"};
    EXPECT_EQ(handler.preAuth(user), PreAuthResult::noOfflineData) << "nobody is stored";
    for (const char* pointer :
         {"/POLICY_DATA", "/USER_DATA", "/POLICY_DATA/MFA_NO_OF_FACTORS",
          "/POLICY_DATA/OFFLINE_MFA_LIMIT_TYPE", "/POLICY_DATA/OFFLINE_MFA_LIMIT_VALUE",
          "/USER_DATA/SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", "/USER_DATA/LAST_ONLINE_MFA_TIME"}) {
        for (const Value& value : junk) {
            Value broken = whole;
            broken[Value::json_pointer(pointer)] = value;
            store(user, broken);
            newLines();
            EXPECT_EQ(handler.preAuth(user), PreAuthResult::noOfflineData) << pointer << value;
            const std::string key = Value::json_pointer(pointer).back();
            const bool isNumber = !key.ends_with("_DATA");
            EXPECT_EQ(count(newLines(), "OfflineRecord : " + key + " is "), isNumber) << key;
            EXPECT_FALSE(handler.isAttemptLimitedReached(user));
            EXPECT_EQ(handler.countVerification(user), CountResult::noOfflineData);
            EXPECT_EQ(stored(user), broken);
        }
    }
}

TEST_F(OfflineLimitsTest, TellACallerMoreThanTheOfflinePageAsks) {
    EnrollmentHandler handler(clock);
    const seconds last(1'700'000'000);
    Value none = record(1, 1, 0, last.count());
    none["POLICY_DATA"]["MFA_NO_OF_FACTORS"] = 0;
    store(user, none);
    clock.set(last);
    EXPECT_EQ(handler.preAuth(user), PreAuthResult::allowed);
    EXPECT_EQ(handler.standing(user, last).factors, 0);
    EXPECT_EQ(handler.standing(user, last + std::chrono::days(11)).result,
              PreAuthResult::limitReached);
    EXPECT_EQ(handler.countVerification(user), CountResult::counted);
    EXPECT_EQ(handler.countVerification("nobody@CORP"), CountResult::noOfflineData);
    // No file for the lock: nothing is counted, and that is not taken for a success.
    std::filesystem::remove(sandbox.support() / "offline-data.lock");
    std::filesystem::create_directory(sandbox.support() / "offline-data.lock");
    EXPECT_EQ(handler.countVerification(user), CountResult::notWritten);
    EXPECT_FALSE(handler.isAttemptLimitedReached(user));
    EXPECT_FALSE(handler.resetOfflineLimit(user));
    EXPECT_EQ(attempts(), 1);
}

TEST_F(OfflineLimitsTest, AskNoServerAndSayWhenRecordsCouldBeAnybodys) {
    configure("AGENT_ID", "");
    configure("INSTALLATION_KEY", "would be sent");
    configure("RESTRICT_BADCERT", "false");
    store(user, record(2, 3, 0, 0));
    newLines();
    EXPECT_EQ(EnrollmentHandler(clock).preAuth(user), PreAuthResult::allowed);
    const std::string log = newLines();
    EXPECT_EQ(count(log, "preAuth : RESTRICT_BADCERT is not \"true\": anyone"), 1U) << log;
    EXPECT_EQ(count(log, "get agent key"), 0U) << log;
}

TEST_F(OfflineLimitsTest, EverySuccessIsCountedUntilTheLimitOfAttempts) {
    EnrollmentHandler handler(clock);
    const struct {
        Value type, value, attempts;
        bool reached;
        Value after;
    } rows[] = {{2, 3, 2, false, 3}, {2, 3, 3, true, 3},    {"2", 3, "3", true, "3"},
                {1, 0, 7, false, 8}, {0, 0, "0", false, 1}, {0, 0, INT64_MAX, false, INT64_MAX}};
    for (const auto& row : rows) {
        store(user, record(row.type, row.value, row.attempts, 5));
        EXPECT_EQ(handler.isAttemptLimitedReached(user), row.reached) << row.type;
        EXPECT_EQ(stored(user), record(row.type, row.value, row.after, 5));
    }
}

TEST_F(OfflineLimitsTest, NoSuccessIsLostWhenProcessesCountAtOnce) {
    store(user, record(2, 1000, 0, 0));
    std::vector<pid_t> children;
    for (int i = 0; i < 3; ++i)
        children.push_back(inChild([&] {
            EnrollmentHandler handler(clock);
            for (int successes = 0; successes < 15; ++successes)
                handler.isAttemptLimitedReached(user);
            return true;
        }));
    for (const pid_t child : children)
        EXPECT_TRUE(endsWell(child));
    EXPECT_EQ(attempts(), 45);
}

TEST_F(OfflineLimitsTest, StartAnewAfterAnOnlineVerification) {
    EnrollmentHandler handler(clock);
    clock.set(std::chrono::milliseconds(1'234'567'999));
    store(user, record(2, 3, 3, 5));
    handler.resetOfflineLimit(user);
    EXPECT_EQ(stored(user), record(2, 3, 0, 1'234'567));
    EXPECT_EQ(handler.preAuth(user), PreAuthResult::allowed);
}

TEST_F(OfflineLimitsTest, NothingIsReadOrCountedWhileSwitchedOff) {
    store(user, record(2, 3, 3, 5));
    for (const char* setting : {"false", "", "1", "TRUE "}) {
        configure("OFFLINE_MFA", setting);
        EnrollmentHandler handler(clock);
        EXPECT_EQ(handler.preAuth(user), PreAuthResult::offlineMFADisabled);
        EXPECT_FALSE(handler.isAttemptLimitedReached(user));
        handler.resetOfflineLimit(user);
    }
    EXPECT_EQ(stored(user), record(2, 3, 3, 5));
}

}  // namespace
}  // namespace quorl::test
