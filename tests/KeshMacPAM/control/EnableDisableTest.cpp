#include "KeshctlStage.h"

#include <gmock/gmock.h>

namespace quorl::test {
namespace {

using testing::HasSubstr;

class EnableDisableTest : public testing::Test, public KeshctlStage {
  protected:
    // A machine with the PAM files of this one, and the system's own tool working below its root.
    void SetUp() override {
        if (geteuid() != 0 || !std::filesystem::exists("/usr/sbin/pam-auth-update"))
            GTEST_SKIP() << "needs root and pam-auth-update";
        const auto system = sandbox.system();
        for (const char* folder : {"/etc/pam.d", "/usr/share/pam-configs", "/var/lib/pam"})
            std::filesystem::create_directories(system.string() + folder);
        for (const char* type :
             {"account", "auth", "password", "session", "session-noninteractive"})
            std::filesystem::copy_file(std::string("/usr/share/pam/common-") + type,
                                       system.string() + "/etc/pam.d/common-" + type);
        std::filesystem::copy_file("/usr/share/pam-configs/unix",
                                   system / "usr/share/pam-configs/unix");
        std::filesystem::copy_file(QUORL_SOURCE_DIR "/packaging/pam-configs/kesh",
                                   system / "usr/share/pam-configs/kesh");
        // With a configuration database of its own: the machine's is locked by whoever installs.
        TestSandbox::write(sandbox.root() / "debconf.conf",
                           fmt::format("Config: c\nTemplates: t\n\nName: c\nDriver: File\n"
                                       "Filename: {0}/config.dat\n\nName: t\nDriver: File\n"
                                       "Filename: {0}/templates.dat\n",
                                       sandbox.root().string()));
        program("/usr/sbin/pam-auth-update",
                "DEBCONF_SYSTEMRC=" + (sandbox.root() / "debconf.conf").string() +
                    " exec /usr/sbin/pam-auth-update --root " + system.string() + " \"$@\"");
        write("/etc/pam.d/login", "auth requisite pam_nologin.so\n@include common-auth\n");
        write("/etc/pam.d/sshd", "@include common-auth\n");
        write("/etc/passwd", "root:x:0:0::/root:/bin/sh\nada:x:1000:1000::/home/ada:/bin/sh\n");
        write("/etc/shadow", "root:" + hash + ":1::::::\nada:" + hash + ":1::::::\n");
        write("/etc/nsswitch.conf", "passwd: files sss\n");
        // As a package's installation leaves it.
        outputOf({system / "usr/sbin/pam-auth-update", "--package", "--force"});
        ASSERT_THAT(file("/etc/pam.d/common-auth"), HasSubstr("pam_unix.so"));
    }
    std::string auth() const { return file("/etc/pam.d/common-auth"); }

    const std::string hash = "$y$j9T$abcdefghijklmnop$0123456789";
};

TEST_F(EnableDisableTest, RefusesWhatWouldLockEverybodyOut) {
    const std::string before = auth();
    const struct {
        std::string path, content, says;
    } cases[] = {
        {"/etc/shadow", "root:*:1::::::\nada:" + hash + ":1::::::\n", "nobody could repair"},
        {"/etc/pam.d/sddm", "@include common-auth\n", "sddm cannot ask"},
        {"/usr/sbin/sshd", "#!/bin/sh\necho usepam yes; echo kbdinteractiveauthentication no\n",
         "--with-sshd mends it"},
    };
    for (const auto& c : cases) {
        const std::string was = file(c.path);
        write(c.path, c.content);
        std::filesystem::permissions(sandbox.system().string() + c.path,
                                     std::filesystem::perms::owner_all);
        const Outcome outcome = keshctl({"enable"});
        EXPECT_EQ(outcome.status, 2) << outcome.said;
        EXPECT_THAT(outcome.said, HasSubstr(c.says));
        EXPECT_EQ(auth(), before);
        was.empty() ? void(std::filesystem::remove(sandbox.system().string() + c.path))
                    : write(c.path, was);
    }
}

TEST_F(EnableDisableTest, LetsSshdAskOnlyWhereSshdHeedsIt) {
    const std::string dropIn = sandbox.system() / "etc/ssh/sshd_config.d/50-kesh.conf";
    program("/usr/sbin/sshd", "echo usepam yes; echo kbdinteractiveauthentication no");
    EXPECT_EQ(keshctl({"enable", "--with-sshd"}).status, 2);
    EXPECT_FALSE(std::filesystem::exists(dropIn));
    program("/usr/sbin/sshd",
            "echo usepam yes; cat " + dropIn + "; echo kbdinteractiveauthentication no");
    const Outcome outcome = keshctl({"enable", "--with-sshd"});
    EXPECT_EQ(outcome.status, 0) << outcome.said;
    EXPECT_EQ(TestSandbox::read(dropIn), "KbdInteractiveAuthentication yes\n");
    EXPECT_THAT(outcome.said, HasSubstr("sshd                asked"));
    EXPECT_THAT(outcome.said, HasSubstr("the directory's accounts; not the 1 local ones"));
    EXPECT_THAT(auth(), HasSubstr("default=die]\tpam_kesh.so"));
}

// pam-auth-update leaves such a file alone, with exit status 0.
TEST_F(EnableDisableTest, TakesExactlyOurLinesOutOfWhatWasEditedByHand) {
    const std::string edited =
        "# mine\nauth required pam_faildelay.so delay=1\nauth sufficient pam_unix.so\n"
        "auth requisite pam_deny.so";
    write("/etc/pam.d/common-auth", edited);
    const Outcome refused = keshctl({"enable"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.said, HasSubstr("/etc/pam.d/common-auth:2 names pam_faildelay.so"));
    EXPECT_EQ(auth(), edited);

    const std::string ours =
        "auth [success=3 ignore=3  module_unknown=ignore default=die] pam_kesh.so debug\n"
        "# theirs\n"
        "auth [success=2 default=ignore] pam_succeed_if.so quiet uid eq 0\n"
        "auth [success=1 default=ignore] pam_localuser.so\n"
        "auth requisite pam_deny.so\n";
    const std::string first = "auth required pam_unix.so\n";
    const std::string last = "auth requisite pam_deny.so\nauth optional pam_cap.so";
    write("/etc/pam.d/common-auth", first + ours + last);
    write("/etc/pam.d/sudo", "auth required pam_kesh.so\n" + first);
    const Outcome disabled = keshctl({"disable"});
    EXPECT_EQ(disabled.status, 0) << disabled.said;
    EXPECT_EQ(auth(), first + "# theirs\n" + last);
    EXPECT_EQ(file("/etc/pam.d/sudo"), first);
}

}  // namespace
}  // namespace quorl::test
