#include "WebStage.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace quorl::test {
namespace {

// The tests' own authority is the only one that this process and its children trust: its bundle
// lies over the system's, in a mount namespace of their own.
class OwnTrust {
  protected:
    OwnTrust() {
        if (getuid() != 0)
            startAgainAsRootOfANamespace();
        ready_ = unshare(CLONE_NEWNS) == 0 &&
                 mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount(QUORL_TEST_CERTIFICATES "/ca-certificates.crt",
                       "/etc/ssl/certs/ca-certificates.crt", nullptr, MS_BIND, nullptr) == 0;
    }

    bool ready_ = false;

  private:
    // An ordinary user may mount only there, and a program with threads cannot move there itself.
    static void startAgainAsRootOfANamespace() {
        std::string words = TestSandbox::read("/proc/self/cmdline");
        std::vector<char*> command{const_cast<char*>("unshare"), const_cast<char*>("-rm")};
        for (std::size_t at = 0; at < words.size(); at = words.find('\0', at) + 1)
            command.push_back(words.data() + at);
        command.push_back(nullptr);
        execvp(command[0], command.data());
    }
};

// Trust comes before the stage, which starts other processes.
class Certificates : OwnTrust, public WebStage {
  protected:
    void SetUp() override {
        ASSERT_TRUE(ready_) << "no mount namespace of our own";
        WebStage::SetUp();
    }
};

TEST_F(Certificates, AreVerifiedAndTheirFaultsHaveCodes) {
    delegate.certificates = ChallengeAnswer::performDefaultHandling;
    const std::pair<const char*, const char*> cases[] = {
        {"server", "start, commit, finish /page/echo"},
        {"wrong-host", "start, failed before commit -1202"},
        {"self-signed", "start, failed before commit -1202"},
        {"expired", "start, failed before commit -1201"},
        {"not-yet-valid", "start, failed before commit -1204"},
    };
    for (const auto& [certificate, told] : cases) {
        SCOPED_TRACE(certificate);
        startServer({}, certificate);
        EXPECT_EQ(load({.url = url("/page/echo")}), std::string("policy /page/echo, ") + told);
        EXPECT_EQ(load({.url = url("/page/echo?form"), .method = "POST", .body = "a=b"}),
                  std::string("policy /page/echo?form, ") +
                      (std::string(told).ends_with("echo") ? told + std::string("?form") : told));
        EXPECT_EQ(requests("/page/echo?form").size(), certificate == std::string("server"));
    }
}

TEST_F(Certificates, AnyIsTakenWhereTheDelegateSaysSo) {
    startServer({}, "expired");
    EXPECT_EQ(load({.url = url("/page/echo")}),
              "policy /page/echo, start, commit, finish /page/echo");
}

}  // namespace
}  // namespace quorl::test
