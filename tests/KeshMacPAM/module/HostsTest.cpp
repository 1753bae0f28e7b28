#include "LoginHost.h"

#include <gmock/gmock.h>
#include <security/pam_appl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <atomic>

namespace quorl::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

void limit(__rlimit_resource resource, rlim_t value) {
    const rlimit both{value, value};
    setrlimit(resource, &both);
}

/// What the helper can raise again without a capability.
void softLimit(__rlimit_resource resource, rlim_t value) {
    rlimit limits;
    getrlimit(resource, &limits);
    limits.rlim_cur = value;
    setrlimit(resource, &limits);
}

TEST(OddHost, GetsTheSameAnswer) {
    const struct {
        const char* what;
        std::function<void()> prepare;
    } rows[] = {
        {"ignores its children", [] { signal(SIGCHLD, SIG_IGN); }},
        {"reaps whatever ends",
         [] {
             signal(SIGCHLD, [](int) {
                 while (waitpid(-1, nullptr, WNOHANG) > 0) {
                 }
             });
         }},
        {"has no standard descriptors",
         [] {
             for (int fd = 0; fd < 3; ++fd)
                 close(fd);
         }},
        {"may write nothing", [] { softLimit(RLIMIT_FSIZE, 0); }},
        {"may have 16 descriptors", [] { softLimit(RLIMIT_NOFILE, 16); }},
        {"dies of a broken pipe", [] { signal(SIGPIPE, SIG_DFL); }},
        {"is interrupted all the time",
         [] {
             signal(SIGUSR1, [](int) {});
             std::thread([host = pthread_self()] {
                 for (;; std::this_thread::sleep_for(1ms))
                     pthread_kill(host, SIGUSR1);
             }).detach();
         }},
    };
    for (const auto& row : rows) {
        const ModuleSandbox sandbox;
        const Played right = play(sandbox, {.user = "codes", .prepare = row.prepare});
        EXPECT_EQ(right.status, PAM_SUCCESS) << row.what << ": " << right.log;
        EXPECT_FALSE(right.children) << row.what;
        EXPECT_TRUE(right.sameSignals) << row.what;
        const Played wrong =
            play(sandbox, {.user = "codes", .person = {.typed = "0"}, .prepare = row.prepare});
        EXPECT_EQ(wrong.status, PAM_AUTH_ERR) << row.what;
    }
}

TEST(OddHost, WithoutMeansNeverLetsIn) {
    const struct {
        const char* what;
        std::function<void()> prepare;
    } rows[] = {{"memory", [] { limit(RLIMIT_AS, 1 << 20); }},
                {"space", [] { limit(RLIMIT_FSIZE, 0); }},
                {"descriptors", [] { limit(RLIMIT_NOFILE, 5); }},
                {"any descriptor", [] { limit(RLIMIT_NOFILE, 0); }},
                {"processes", [] { limit(RLIMIT_NPROC, 0); }}};
    for (const auto& row : rows) {
        const ModuleSandbox sandbox;
        // With so little the stack itself may not load: then nobody is let in, either.
        const Played played =
            play(sandbox, {.user = "codes", .person = {.typed = "0"}, .prepare = row.prepare});
        EXPECT_NE(played.status, PAM_SUCCESS) << row.what;
        EXPECT_NE(played.status, PAM_IGNORE) << row.what;
    }
}

TEST(OddHost, WhoseOtherThreadsForkIsToldOfADeadHelper) {
    const ModuleSandbox sandbox;
    const Played played = play(sandbox, {.user = "killed", .prepare = [] {
                                             std::thread([] {
                                                 for (int i = 0; i < 200; ++i) {
                                                     if (fork() == 0) {
                                                         sleep(4);
                                                         _exit(0);
                                                     }
                                                     std::this_thread::sleep_for(1ms);
                                                 }
                                             }).detach();
                                         }});
    EXPECT_EQ(played.status, PAM_AUTH_ERR);
    EXPECT_THAT(played.log, HasSubstr("the helper ended without a verdict"));
    EXPECT_LT(played.took(), 3s);
}

TEST(OddHost, ThatIsKilledLetsTheHelperGo) {
    const ModuleSandbox sandbox;
    LoginHost host(sandbox, {.user = "forever"});
    ASSERT_TRUE(waitFor([&] { return sandbox.seen().find("pid=") != std::string::npos; }));
    kill(host.pid(), SIGKILL);
    EXPECT_TRUE(waitFor([&] { return sandbox.seen().find("let go") != std::string::npos; }, 1s));
    EXPECT_TRUE(waitFor([&] { return !sandbox.helperLives(); }, 1s));
}

TEST(OddHost, WithAnAlarmGetsOurTextFirst) {
    const auto alarmIn = [](int seconds) {
        return [seconds] {
            const itimerval timer{{0, 0}, {seconds, 0}};
            setitimer(ITIMER_REAL, &timer, nullptr);
        };
    };
    const ModuleSandbox sandbox;
    const Played short7 = play(sandbox, {.user = "forever", .prepare = alarmIn(7)});
    EXPECT_EQ(short7.status, PAM_AUTH_ERR);
    EXPECT_LT(short7.took(), 3s);
    ASSERT_EQ(short7.prompts.size(), 1u);
    EXPECT_THAT(short7.prompts[0], HasSubstr("That took too long."));
    const Played short3 = play(sandbox, {.user = "granted", .prepare = alarmIn(3)});
    EXPECT_EQ(short3.status, PAM_AUTH_ERR);
    EXPECT_LT(short3.took(), 1s);

    const ModuleSandbox told;
    play(told, {.user = "facts", .prepare = alarmIn(60)});
    EXPECT_THAT(told.seen(), testing::ContainsRegex("left=(55000|5[45][0-9][0-9][0-9])\n"));
    const ModuleSandbox ssh;
    play(ssh, {.user = "facts", .service = "sshd"});
    EXPECT_THAT(ssh.seen(), HasSubstr("left=100000\n"));
}

TEST(OddHost, ThatDoesNotRunAsRootAsksNobody) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to give it up";
    // The product's own module: its helper is not there, so that asking would be a denial.
    const ModuleSandbox sandbox;
    std::filesystem::permissions(sandbox.path(""), std::filesystem::perms(0755));
    const std::string module = (sandbox.path("product.so")).string();
    std::filesystem::copy_file(KESH_MODULE, module);
    sandbox.stack("login", "auth [success=die ignore=ignore default=die] " + module +
                               "\nauth required pam_permit.so");
    const Played locker =
        play(sandbox, {.user = "nobody", .prepare = [] { (void)!setuid(65534); }});
    EXPECT_EQ(locker.status, PAM_SUCCESS) << locker.log;
    EXPECT_THAT(locker.log, HasSubstr("the host does not run as root"));
}

}  // namespace
}  // namespace quorl::test
