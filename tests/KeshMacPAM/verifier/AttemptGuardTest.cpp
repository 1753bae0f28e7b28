#include "AttemptGuard.h"
#include "TestClock.h"
#include "TestSandbox.h"

#include <sys/stat.h>

namespace quorl::test {
namespace {

using namespace std::chrono;

class AttemptGuardTest : public testing::Test {
  protected:
    static constexpr uid_t dora = 4711;

    GuardState wrong(int codes = 1) {
        return *guard_.change(
            [&](GuardState& state, GuardState::Time now) { state.noteWrong(now, codes); });
    }
    seconds lockedFor() { return guard_.see()->lockedFor(guard_.now()); }

    const TestSandbox sandbox_;
    const std::string folder_ = (sandbox_.root() / "var" / "guard").string();
    const std::string file_ = folder_ + "/" + std::to_string(dora);
    TestClock clock_{hours(24 * 365 * 50)};
    AttemptGuard guard_{folder_, dora, clock_};
};

TEST_F(AttemptGuardTest, LocksAtEveryTenthWrongCodeForTwiceAsLong) {
    for (const int minutesLocked : {1, 2, 4, 8, 15, 15}) {
        for (int code = 1; code < 10; ++code) {
            wrong();
            EXPECT_EQ(lockedFor(), 0s);
        }
        wrong();
        // Another process, another spelling of the name, a restart: the same uid.
        EXPECT_EQ(AttemptGuard(folder_, dora, clock_).see()->lockedFor(guard_.now()),
                  minutes(minutesLocked));
        EXPECT_EQ(AttemptGuard(folder_, dora + 1, clock_).see()->lockedFor(guard_.now()), 0s);
        clock_.advance(minutes(minutesLocked) - 1s);
        EXPECT_EQ(lockedFor(), 1s);
        clock_.advance(1s);
        EXPECT_EQ(lockedFor(), 0s);
    }
    wrong(9);
    guard_.change([](GuardState& state, GuardState::Time) { state.noteSuccess(); });
    wrong(9);
    EXPECT_EQ(lockedFor(), 0s);
    wrong(2);  // as a page that was closed counts
    EXPECT_EQ(lockedFor(), 60s);
    EXPECT_EQ(modeOf(file_), 0600u);
    EXPECT_EQ(modeOf(folder_), 0700u);
}

TEST_F(AttemptGuardTest, AcceptsNoStepTwice) {
    const auto use = [&](std::int64_t step) {
        guard_.change([&](GuardState& state, GuardState::Time) { state.noteUsed(3, step); });
    };
    use(100);
    use(98);
    const GuardState state = *AttemptGuard(folder_, dora, clock_).see();
    EXPECT_TRUE(state.isUsed(3, 98) && state.isUsed(3, 100));
    EXPECT_FALSE(state.isUsed(3, 101) || state.isUsed(14, 98));
}

TEST_F(AttemptGuardTest, GainsAndLosesNothingByTheClock) {
    const auto real = guard_.now();
    guard_.see();
    const struct {
        seconds turned;
        bool back;
    } rows[] = {{24h * -365, true}, {-25h, true}, {-23h, false}, {0s, false}, {24h * 365, false}};
    for (const auto& row : rows) {
        const auto now = real + row.turned;
        EXPECT_EQ(guard_.see()->limitTime(now), row.back ? real : now) << row.turned.count();
    }
    // Locked while the clock was a year ahead: no longer than a lock lasts once it is right again.
    clock_.advance(24h * 365);
    wrong(10);
    clock_.advance(24h * -365);
    EXPECT_EQ(lockedFor(), 60s);
    clock_.advance(60s);
    EXPECT_EQ(lockedFor(), 0s);
    // The server vouches for the clock that it is right.
    EXPECT_GT(guard_.see()->limitTime(guard_.now()), guard_.now());
    guard_.change([](GuardState& state, GuardState::Time now) { state.trustClock(now); });
    EXPECT_EQ(guard_.see()->limitTime(guard_.now()), guard_.now());
}

TEST_F(AttemptGuardTest, IsLockedForAMinuteByWhateverItDidNotWrite) {
    wrong(3);
    const std::string good = TestSandbox::read(file_);
    const auto with = [&](const std::string& part, const std::string& instead) {
        std::string changed = good;
        const auto at = changed.find(part);
        EXPECT_NE(at, std::string::npos) << part;
        return changed.replace(at, part.size(), instead);
    };
    for (const std::string& content :
         {std::string(), std::string("{}"), good.substr(0, good.size() / 2),
          std::string("[[[[1]]]]"), std::string(70'000, ' ') + good,
          with("\"wrong\":3", "\"wrong\":-1"),
          with("\"wrong\":3", "\"wrong\":18446744073709551615"),
          with("\"wrong\":3", "\"wrong\":3.5"), with("\"version\":1", "\"version\":2"),
          with("\"used\":{}", "\"used\":[]"), with("\"used\":{}", "\"used\":{\"x\":1}"),
          with("\"lockLength\":0", "\"lockLength\":9999"),
          with("\"lockedUntil\":0", "\"lockedUntil\":9223372036854775807")}) {
        TestSandbox::write(file_, content);
        EXPECT_EQ(lockedFor(), 60s) << content;
        EXPECT_EQ(lockedFor(), 60s) << "written anew: " << content;
    }
    unlink(file_.c_str());
    mkdir(file_.c_str(), 0700);
    EXPECT_FALSE(guard_.see()) << "a folder in the file's place cannot be replaced";
    rmdir(file_.c_str());
    ASSERT_EQ(symlink("/nowhere", file_.c_str()), 0);
    EXPECT_FALSE(guard_.see());
    chmod(folder_.c_str(), 0777);
    EXPECT_FALSE(guard_.see()) << "anybody's folder";
}

}  // namespace
}  // namespace quorl::test
