#include "WebStage.h"

#include <errno.h>
#include <fmt/format.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

namespace quorl::test {
namespace {

// The tests' own authority is the only one that this process and its children trust: its bundle
// lies over the system's, in a mount namespace of their own.
class Certificates : public WebStage {
  protected:
    Certificates() {
        const uid_t uid = getuid();
        const gid_t gid = getgid();
        ready_ = unshare(uid == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) == 0;
        if (uid != 0) {
            TestSandbox::write("/proc/self/setgroups", "deny");
            TestSandbox::write("/proc/self/uid_map", fmt::format("{} {} 1", uid, uid));
            TestSandbox::write("/proc/self/gid_map", fmt::format("{} {} 1", gid, gid));
        }
        ready_ = ready_ && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount(QUORL_TEST_CERTIFICATES "/ca-certificates.crt",
                       "/etc/ssl/certs/ca-certificates.crt", nullptr, MS_BIND, nullptr) == 0;
    }
    void SetUp() override {
        ASSERT_TRUE(ready_) << "no mount namespace of our own: " << strerror(errno);
        WebStage::SetUp();
    }
    void serve(const std::string& certificate) {
        const std::string base = QUORL_TEST_CERTIFICATES "/" + certificate;
        startServer({"--cert", base + ".pem", "--key", base + ".key"});
    }

  private:
    bool ready_ = false;
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
        serve(certificate);
        EXPECT_EQ(load({.url = url("/page/echo")}), std::string("policy /page/echo, ") + told);
        EXPECT_EQ(load({.url = url("/page/echo?form"), .method = "POST", .body = "a=b"}),
                  std::string("policy /page/echo?form, ") +
                      (std::string(told).ends_with("echo") ? told + std::string("?form") : told));
        EXPECT_EQ(requests("/page/echo?form").size(), certificate == std::string("server"));
    }
}

TEST_F(Certificates, AnyIsTakenWhereTheDelegateSaysSo) {
    serve("expired");
    EXPECT_EQ(load({.url = url("/page/echo")}),
              "policy /page/echo, start, commit, finish /page/echo");
}

}  // namespace
}  // namespace quorl::test
