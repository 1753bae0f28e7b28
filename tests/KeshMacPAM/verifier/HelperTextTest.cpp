// The helper as a program in text services: who is asked, what counts, what is said.
#include "HelperStage.h"
#include "TestClock.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

namespace quorl::test {
namespace {

using testing::HasSubstr;
using verifier::Answer;
using verifier::Verdict;

using HelperTextTest = HelperStage;

TEST_F(HelperTextTest, LetsInByARightCodeOnceAndCountsIt) {
    const auto first = signIn(sshd(), {{code()}});
    EXPECT_EQ(first->verdict, Verdict::Granted) << log();
    ASSERT_EQ(first->asked.size(), 1U);
    EXPECT_EQ(first->asked[0], "Code from Phone: ");
    EXPECT_EQ(attempts(), 1);
    // Again at once, by whoever read it over a shoulder; the one of before is no better.
    const auto again = signIn(sshd(), {{code()}, {code(-30)}, {code(30)}});
    EXPECT_EQ(again->verdict, Verdict::Granted);
    EXPECT_THAT(again->asked.at(1), HasSubstr("used already"));
    EXPECT_THAT(again->asked.at(2), HasSubstr("used already"));
    EXPECT_EQ(attempts(), 2);
    EXPECT_EQ(guard().wrongInRow, 0);
    EXPECT_THAT(log(), HasSubstr("user=dora service=sshd way=text outcome=granted"));
    EXPECT_EQ(log().find(code(30)), std::string::npos);
}

TEST_F(HelperTextTest, LocksAtTheTenthWrongCodeHoweverTheNameIsSpelled) {
    const std::string names[] = {"dora", "DORA", "EXAMPLE\\dora"};
    for (int attempt = 0; attempt < 5; ++attempt) {
        // Two wrong codes, then the line is cut at the third prompt.
        ModuleEnd module(environment());
        verifier::Start start = sshd();
        start.user = names[attempt % 3];
        module.start(start);
        std::thread cut([&] { module.play({{"000000"}, {"00000"}, {"", Answer::None}}); });
        cut.join();
        EXPECT_EQ(guard().wrongInRow, attempt == 4 ? 0 : 2 * attempt + 2) << log();
    }
    const auto locked = signIn(sshd(), {{code()}});
    EXPECT_EQ(locked->verdict, Verdict::DeniedMaxTries);
    EXPECT_EQ(locked->lastAsked(), "Too many wrong codes. Try again in 1 min. Press Return.");
    EXPECT_EQ(locked->asked.size(), 1U);
    EXPECT_EQ(attempts(), 0);
}

TEST_F(HelperTextTest, DeniesWithoutCountingWhatIsNoTry) {
    verifier::Start hasty = sshd();
    hasty.left = std::chrono::milliseconds(400);
    const struct {
        verifier::Start start;
        std::deque<ModuleEnd::Reply> replies;
        const char* said;
    } rows[] = {
        {sshd(), {{"", Answer::Password}}, "not your password"},
        {sshd(), {{"", Answer::None}}, "Code from"},
        {hasty, {{code(), Answer::Typed, std::chrono::milliseconds(600)}}, "too late"},
    };
    for (const auto& row : rows) {
        const auto module = signIn(row.start, row.replies);
        EXPECT_NE(module->verdict, Verdict::Granted);
        EXPECT_THAT(module->lastAsked(), HasSubstr(row.said));
        EXPECT_TRUE(guard().wrongInRow == 0 && guard().used.empty()) << row.said;
        EXPECT_EQ(attempts(), 0);
    }
    const auto wrong = signIn(sshd(), {{"1"}, {" "}, {"999999999999"}});
    EXPECT_EQ(wrong->verdict, Verdict::Denied);
    EXPECT_THAT(wrong->asked.at(1), HasSubstr("did not work"));
    EXPECT_EQ(guard().wrongInRow, 3);
}

TEST_F(HelperTextTest, AsksForEveryFactorThatIsOwed) {
    Value two = record(1);
    two["POLICY_DATA"]["ENABLED_AUTHS"] = {3, 14};
    two["USER_DATA"]["AUTH_ENROLLMENT"]["14"] = method("Token\x1b[2J");
    enroll(two);
    const auto chosen = signIn(sshd(), {{"7"}, {"2"}, {code()}});
    EXPECT_EQ(chosen->verdict, Verdict::Granted);
    EXPECT_THAT(chosen->asked.at(0), HasSubstr("1  Phone\n2  Token\\U001b"));
    EXPECT_THAT(chosen->asked.at(2), HasSubstr("Code from Token"));
    two["POLICY_DATA"]["MFA_NO_OF_FACTORS"] = 2;
    two["POLICY_DATA"]["OFFLINE_MFA_LIMIT_VALUE"] = 2;
    enroll(two);
    const auto both = signIn(sshd(), {{code()}, {code(30)}});
    EXPECT_EQ(both->verdict, Verdict::Granted);
    EXPECT_EQ(both->asked.size(), 2U);
    EXPECT_THAT(both->asked.at(0), HasSubstr("(Offline sign-ins left: 2)"));
    EXPECT_EQ(attempts(), 1);
}

TEST_F(HelperTextTest, FollowsConfigurationAndRecord) {
    const TestServer server;
    const TestServer stranger("self-signed");
    const std::string here = std::to_string(server.port());
    const std::string there = std::to_string(stranger.port());
    const Settings bypass = {{"BYPASS_MFA_SERVERUNREACH", "true"}};
    const auto with = [](Settings settings, const Settings& more) {
        settings.insert(more.begin(), more.end());
        return settings;
    };
    const struct {
        const char* what;
        Settings settings;
        Value record;
        Verdict verdict;
        const char* said;
    } rows[] = {
        {"off", {{"LOGIN_MFA", "false"}}, record(), Verdict::Ignore, ""},
        {"damaged", {{"ACCESS_KEY", "bm8ga2V5"}}, record(), Verdict::Denied, "keshctl doctor"},
        {"used up", bypass, record(1, 3, 3), Verdict::DeniedMaxTries, "used up"},
        {"not enrolled", {}, {}, Verdict::Denied, "Could not connect"},
        {"own text", {{"SERVER_UNREACH_MSG", "Ring 4711."}}, {}, Verdict::Denied, "Ring 4711."},
        {"bypass", bypass, {}, Verdict::Ignore, "without a second factor"},
        {"owes nothing", bypass, record(0), Verdict::Ignore, "without a second factor"},
        {"enforced", with(bypass, {{"IS_MFA_ENFORCED", "true"}}), {}, Verdict::Denied, "reached"},
        {"offline off", {{"OFFLINE_MFA", "false"}}, record(), Verdict::Denied, "Could not connect"},
        {"server, no record",
         with(bypass, {{"PORTNUMBER", here}}),
         {},
         Verdict::Denied,
         "login screen"},
        {"stranger, no record",
         with(bypass, {{"PORTNUMBER", there}, {"RESTRICT_BADCERT", "true"}}),
         {},
         Verdict::Denied,
         "certificate"},
    };
    for (const auto& row : rows) {
        configure(row.settings);
        enroll(row.record);
        const auto module = signIn(sshd());
        EXPECT_EQ(module->verdict, row.verdict) << row.what << "\n" << log();
        EXPECT_THAT(module->said + module->lastAsked(), HasSubstr(row.said)) << row.what;
    }
    std::filesystem::remove(sandbox_.support() / "config.plist");
    EXPECT_EQ(signIn(sshd())->verdict, Verdict::Ignore);
    configure();
    enroll(record());
    verifier::Start stranger_ = sshd();
    stranger_.user = "nobody-of-that-name";
    EXPECT_EQ(signIn(stranger_)->verdict, Verdict::Denied);
    verifier::Start su = sshd();
    su.service = "su";
    const auto shown = signIn(su, {{"1"}, {"2"}, {"3"}});
    EXPECT_THAT(shown->said, HasSubstr("Too many wrong answers")) << "su shows error texts";
    EXPECT_EQ(shown->asked.size(), 3U);
}

TEST_F(HelperTextTest, EndsWithItsHost) {
    const auto atPrompt = [&](ModuleEnd& module) {
        module.start(sshd());
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (module.kind_ != verifier::Kind::Ask && module.next(end)) {
        }
        ASSERT_EQ(module.kind_, verifier::Kind::Ask);
    };
    const auto endsSoon = [](ModuleEnd& module) {
        return module.helper().wait(std::chrono::seconds(1)).has_value();
    };
    ModuleEnd cancelled(environment());
    atPrompt(cancelled);
    cancelled.hangUp();
    EXPECT_TRUE(endsSoon(cancelled));
    verifier::Packet garbage;
    garbage.size = 100;
    ModuleEnd babbling(environment());
    atPrompt(babbling);
    babbling.send(garbage);
    EXPECT_TRUE(endsSoon(babbling));
    ModuleEnd foreign(environment());
    foreign.send(garbage);
    EXPECT_TRUE(endsSoon(foreign));
    EXPECT_THAT(log(), HasSubstr("outcome=denied reason=the sign-in was cancelled"));

    // Killed, while a child that another thread of it forked holds its end of the pair open.
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t host = fork();
    if (host == 0) {
        ModuleEnd module(environment());
        atPrompt(module);
        const pid_t pids[] = {module.helper().pid(), fork()};
        if (pids[1] != 0)
            (void)!write(ends[1], pids, sizeof pids);
        for (;;)
            pause();
    }
    pid_t pids[2] = {};
    ASSERT_EQ(read(ends[0], pids, sizeof pids), ssize_t{sizeof pids});
    kill(host, SIGKILL);
    waitpid(host, nullptr, 0);
    EXPECT_TRUE(waitFor(
        [&] {
            const std::string path = "/proc/" + std::to_string(pids[0]) + "/stat";
            const std::string stat = TestSandbox::read(path);
            return stat.empty() || stat.find(") Z ") != std::string::npos;
        },
        std::chrono::seconds(1)));
    EXPECT_THAT(log(), HasSubstr("outcome=denied reason=the login program ended"));
    kill(pids[1], SIGKILL);
}

TEST_F(HelperTextTest, HoldsItsLimitsWhereTheClockIsTurned) {
    using std::chrono::days;
    const auto present = std::chrono::floor<std::chrono::seconds>(systemClock().now());
    const auto byDays = [&](days ago) {
        Value limited = record();
        limited["POLICY_DATA"]["OFFLINE_MFA_LIMIT_TYPE"] = 1;
        limited["POLICY_DATA"]["OFFLINE_MFA_LIMIT_VALUE"] = 1;  // ten days
        limited["USER_DATA"]["LAST_ONLINE_MFA_TIME"] = (present - ago).time_since_epoch().count();
        return limited;
    };
    constexpr const char* unlocked = "Code from";
    const struct {
        const char* what;
        days guardSaw;  ///< from now
        int wrong;      ///< codes at that time
        Value record;
        Verdict verdict;
        const char* said;
    } rows[] = {
        {"right all along", days(0), 0, byDays(days(5)), Verdict::Granted, unlocked},
        {"set back: days count on", days(365), 0, byDays(days(5)), Verdict::DeniedMaxTries,
         "used up"},
        {"set back: a lock is no longer than it was", days(365), 10, record(),
         Verdict::DeniedMaxTries, "Try again in 1 min."},
        {"set forward: the lock is over", days(-365), 10, record(), Verdict::Granted, unlocked},
        {"set forward: the days are over", days(-365), 0, byDays(days(370)),
         Verdict::DeniedMaxTries, "used up"},
    };
    for (const auto& row : rows) {
        std::filesystem::remove_all(sandbox_.root() / "guard");
        const TestClock then((present + row.guardSaw).time_since_epoch());
        ASSERT_TRUE(AttemptGuard((sandbox_.root() / "guard").string(), dora, then)
                        .change([&](GuardState& state, GuardState::Time time) {
                            state.noteWrong(time, row.wrong);
                        }));
        enroll(row.record);
        const auto module = signIn(sshd(), {{code()}});
        EXPECT_EQ(module->verdict, row.verdict) << row.what << "\n" << log();
        EXPECT_THAT(module->lastAsked(), HasSubstr(row.said)) << row.what;
    }
}

}  // namespace
}  // namespace quorl::test
