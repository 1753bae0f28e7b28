#include "StoreFixture.h"
#include "TestClock.h"

#include <algorithm>
#include <array>
#include <random>
#include <set>

namespace quorl {
namespace {

using test::endsWell;
using test::inChild;
using test::modeOf;
using test::StoreTest;
using test::TestSandbox;

TEST_F(StoreTest, IsTheOldOrTheNewWhenKilledAtAnyMoment) {
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    const test::TestClock clock;
    // Whole records of a sync, each with its two parts.
    const auto synced = [](const std::string& text) {
        return Value{{"POLICY_DATA", {{"K", text}}}, {"USER_DATA", {{"K", text}}}};
    };
    const std::array<Value, 2> contents = {synced("short"), synced(std::string(9000, 'x'))};
    const auto start = std::chrono::steady_clock::now();
    for (const Value& content : contents)
        OfflineDataHandler::replaceRecord("u", content, clock);
    // Somewhere in the first two changes, however fast the machine is.
    const auto twoChanges = std::chrono::steady_clock::now() - start;
    std::uniform_int_distribution<std::int64_t> moment(0, twoChanges.count());
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    std::size_t current = 1;
    int unchanged = 0;
    for (int kills = 0; kills < 300; ++kills) {
        const pid_t child = inChild([&] {
            for (std::size_t next = 1 - current;; next = 1 - next)
                OfflineDataHandler::replaceRecord("u", contents[next], clock);
            return false;
        });
        std::this_thread::sleep_for(std::chrono::nanoseconds(moment(random)));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        auto record = OfflineDataHandler::getOfflineData("u");
        ASSERT_TRUE(record) << "seed " << seed << ", kill " << kills;
        record->erase("LAST_SYNC_TIME");
        const auto found = std::find(contents.begin(), contents.end(), *record);
        ASSERT_NE(found, contents.end()) << "seed " << seed << ", kill " << kills;
        const auto after = static_cast<std::size_t>(found - contents.begin());
        unchanged += after == current ? 1 : 0;
        current = after;
        ASSERT_EQ(modeOf(dataFile_), 0600U);
    }
    EXPECT_GT(unchanged, 0);
    EXPECT_LT(unchanged, 300);
    // What the killed ones left goes with the next change, and nothing else does.
    TestSandbox::write(sandbox_.support() / "offline-data.json.backup", "kept");
    OfflineDataHandler::replaceRecord("u", contents[0], clock);
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(sandbox_.support()))
        names.insert(entry.path().filename());
    EXPECT_EQ(names, (std::set<std::string>{"dekey.key", "offline-data.json",
                                            "offline-data.json.backup", "offline-data.lock"}));
}

TEST_F(StoreTest, MakesOneKeyBetweenProcessesThatMissItAtOnce) {
    std::vector<pid_t> children;
    for (const std::string name : {"a", "b", "c"})
        children.push_back(inChild([&] {
            return OfflineDataHandler::ensureDataEncryptionKey() &&
                   OfflineDataHandler::setOfflineData(name, "K", 1);
        }));
    for (const pid_t child : children)
        EXPECT_TRUE(endsWell(child));
    EXPECT_EQ(OfflineDataHandler::getEnrolledUserList().size(), 3U);
}

}  // namespace
}  // namespace quorl
