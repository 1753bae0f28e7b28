#include "StoreFixture.h"

#include <algorithm>
#include <array>
#include <random>
#include <set>

namespace quorl {
namespace {

using test::StoreTest;
using test::TestSandbox;

/// A process that goes on with the test's memory and runs the work.
template <class Work>
pid_t inChild(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    return child;
}

TEST_F(StoreTest, IsTheOldOrTheNewWhenKilledAtAnyMoment) {
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    const std::array<Value, 2> contents = {"short", std::string(9000, 'x')};
    const auto start = std::chrono::steady_clock::now();
    for (const Value& content : contents)
        OfflineDataHandler::setOfflineData("u", "K", content);
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
                OfflineDataHandler::setOfflineData("u", "K", contents[next]);
        });
        std::this_thread::sleep_for(std::chrono::nanoseconds(moment(random)));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const auto record = OfflineDataHandler::getOfflineData("u");
        ASSERT_TRUE(record) << "seed " << seed << ", kill " << kills;
        const auto found = std::find(contents.begin(), contents.end(), record->at("K"));
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
    OfflineDataHandler::setOfflineData("u", "K", contents[0]);
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
            OfflineDataHandler::ensureDataEncryptionKey();
            OfflineDataHandler::setOfflineData(name, "K", 1);
        }));
    for (const pid_t child : children)
        waitpid(child, nullptr, 0);
    EXPECT_EQ(OfflineDataHandler::getEnrolledUserList().size(), 3U);
}

}  // namespace
}  // namespace quorl
