#include "PacketSocket.h"
#include "ServiceName.h"
#include "SocketAddress.h"
#include "TestSandbox.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>

namespace quorl::test {
namespace {

using testing::HasSubstr;

class ServiceNameTest : public testing::Test {
  protected:
    ServiceNameTest() { umask(077); }
    auto claim() { return ServiceName::claim(folder_, "service"); }
    bool answers() {
        return connectToService(folder_, "service", std::chrono::seconds(1)).has_value();
    }

    TestSandbox sandbox_;
    std::string folder_ = (sandbox_.root() / "run" / "agent").string();
    std::string path_ = folder_ + "/service";
};

TEST_F(ServiceNameTest, MakesTheFolderForAllAndTheSocketForItsOwnerAlone) {
    const auto name = claim();
    ASSERT_TRUE(name) << name.error();
    EXPECT_EQ(modeOf(folder_), 0755u);
    EXPECT_EQ(modeOf(path_), 0600u);
    EXPECT_TRUE(answers());
}

TEST_F(ServiceNameTest, ALiveNameCannotBeTakenAndIsFreeAgainAfterwards) {
    auto first = claim();
    ASSERT_TRUE(first);
    EXPECT_EQ(claim().error(), "another agent serves it");
    // Not even when somebody removed the lock file.
    std::filesystem::remove(path_ + ".lock");
    EXPECT_EQ(claim().error(), "another agent serves it");
    EXPECT_TRUE(answers());

    first->reset();
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_TRUE(claim());
}

TEST_F(ServiceNameTest, GoesOnInTheProgramThatFollowsWithWhoeverWaits) {
    auto first = claim();
    ASSERT_TRUE(first);
    for (const bool taken : {true, false}) {
        HeldName held = (*first)->handOver();
        std::string entry = bequeath(held);
        held.lock.release();
        held.listener.release();
        const auto waiting = connectToService(folder_, "service", std::chrono::seconds(1));
        ASSERT_TRUE(waiting);
        putenv(entry.data());
        if (!taken)
            std::filesystem::remove(path_);
        first = claim();
        ASSERT_TRUE(first) << first.error();
        EXPECT_EQ(FileDescriptor(accept((*first)->listener(), nullptr, nullptr)).get() >= 0, taken);
        // Its pages' processes are none of those that follow.
        EXPECT_EQ(fcntl((*first)->listener(), F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(getenv("QUORL_HELD_NAME"), nullptr);
    }
    EXPECT_TRUE(answers());
}

TEST_F(ServiceNameTest, TheSocketOfADeadAgentIsReplaced) {
    std::filesystem::create_directories(folder_);
    const auto address = socketAddress(path_);
    {
        const FileDescriptor dead(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(dead.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address),
                  0);
        ASSERT_EQ(listen(dead.get(), 1), 0);
    }
    TestSandbox::write(path_ + ".lock", "");
    ASSERT_FALSE(answers());
    const auto name = claim();
    ASSERT_TRUE(name) << name.error();
    EXPECT_TRUE(answers());
}

TEST_F(ServiceNameTest, SaysWhyANameCannotBeHad) {
    TestSandbox::write(path_, "somebody's file");
    EXPECT_THAT(claim().error(), HasSubstr("not a socket"));
    EXPECT_EQ(TestSandbox::read(path_), "somebody's file");

    for (const mode_t mode : {0757, 0775}) {
        chmod(folder_.c_str(), mode);
        EXPECT_THAT(claim().error(), HasSubstr("others can write"));
    }

    const std::string file = path_;
    EXPECT_THAT(ServiceName::claim(file, "service").error(), HasSubstr("not a folder"));
    EXPECT_THAT(ServiceName::claim(folder_ + "/missing/parent", "service").error(),
                HasSubstr("No such file"));
    EXPECT_THAT(ServiceName::claim(folder_, std::string(120, 'n')).error(), HasSubstr("too long"));
}

}  // namespace
}  // namespace quorl::test
