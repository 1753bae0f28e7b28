#include "PipeSource.h"
#include "PollRunLoop.h"

namespace quorl::test {
namespace {

using std::chrono::milliseconds;

TEST(PollRunLoop, ASourceRemovedByAnotherOfTheSameRoundIsNotCalled) {
    PollRunLoop loop;
    PipeSource* second = nullptr;
    PipeSource first([&] { loop.remove(*second); });
    {
        // Gone altogether before the next wait.
        PipeSource removed([] {});
        second = &removed;
        loop.add(first);
        loop.add(removed);
        loop.runFor(milliseconds(20));
        EXPECT_EQ(removed.calls, 0);
    }
    loop.runFor(milliseconds(20));
    EXPECT_EQ(first.calls, 1);
}

TEST(PollRunLoop, SourcesMayBeAddedAndMayRemoveThemselvesInTheirCallback) {
    PollRunLoop loop;
    PipeSource added([] {});
    PipeSource* self = nullptr;
    PipeSource first([&] {
        loop.remove(*self);
        // Enough to move the loop's own storage.
        for (int i = 0; i < 64; ++i) {
            loop.add(added);
            loop.remove(added);
        }
        loop.add(added);
    });
    self = &first;
    loop.add(first);
    loop.runFor(milliseconds(20));
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(added.calls, 1);
}

}  // namespace
}  // namespace quorl::test
