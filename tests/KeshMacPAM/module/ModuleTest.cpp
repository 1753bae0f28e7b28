#include "LoginHost.h"
#include "Subprocess.h"

#include <gmock/gmock.h>
#include <security/pam_appl.h>

#include <ctime>
#include <sstream>

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(PamModule, NeedsLibpamAndLibcAloneAndExportsItsEntriesOnly) {
    std::set<std::string> needed, exported;
    std::istringstream dynamic(outputOf({"readelf", "-dW", KESH_MODULE}));
    for (std::string line; std::getline(dynamic, line);)
        if (line.find("(NEEDED)") != std::string::npos)
            needed.insert(line.substr(line.find('[') + 1, line.find(']') - line.find('[') - 1));
    EXPECT_EQ(needed, (std::set<std::string>{"libpam.so.0", "libc.so.6"}));
    std::istringstream symbols(outputOf({"nm", "-D", "--defined-only", KESH_MODULE}));
    for (std::string address, kind, name; symbols >> address >> kind >> name;)
        exported.insert(name);
    EXPECT_EQ(exported, (std::set<std::string>{"pam_sm_authenticate", "pam_sm_setcred",
                                               "pam_sm_acct_mgmt", "pam_sm_open_session",
                                               "pam_sm_close_session", "pam_sm_chauthtok"}));
}

TEST(PamModule, AnswersWhatTheHelperDecides) {
    const ModuleSandbox sandbox;
    const struct {
        const char* user;
        int status;
    } rows[] = {{"granted", PAM_SUCCESS},
                {"denied", PAM_AUTH_ERR},
                {"locked", PAM_MAXTRIES},
                {"ignored", PAM_IGNORE}};
    for (const auto& row : rows) {
        // A stack of nothing but PAM_IGNORE counts as a denial; a line behind it shows the
        // difference.
        sandbox.stack("login",
                      "auth [success=ok ignore=ignore default=die] MODULE\n"
                      "auth [success=ok default=ignore] pam_permit.so");
        const Played played = play(sandbox, {.user = row.user});
        EXPECT_EQ(played.status, row.status == PAM_IGNORE ? PAM_SUCCESS : row.status) << row.user;
        EXPECT_THAT(played.prompts, IsEmpty()) << row.user;
        EXPECT_EQ(played.leftOpen, 0) << row.user;
        EXPECT_FALSE(played.children) << row.user;
        EXPECT_TRUE(played.sameSignals) << row.user;
    }
    sandbox.stack("login", "auth [default=bad ignore=ignore success=ok] MODULE");
    EXPECT_NE(play(sandbox, {.user = "ignored"}).status, PAM_SUCCESS);
}

TEST(PamModule, GivesTheHelperNothingOfTheHostButItsLanguage) {
    const ModuleSandbox sandbox;
    sandbox.stack("sshd", "auth required MODULE timeout=40 mode.sshd=text mode=window echo=no");
    TestSandbox::write(
        sandbox.path("pam_kesh.conf"),
        "# comment\n\nkey = signed\npage = /second\ntimeout = 50\nmode.login = auto\n");
    const Played played = play(sandbox, {.user = "facts", .service = "sshd", .prepare = [] {
                                             clearenv();
                                             setenv("LANG", "de_DE.UTF-8", 1);
                                             setenv("LC_TIME", "en", 1);
                                             setenv("LC_NAME", "../../tmp/x", 1);
                                             setenv("LD_PRELOAD", "/tmp/x.so", 1);
                                             setenv("PYTHONPATH", "/tmp", 1);
                                             open("/etc/passwd", O_RDONLY);
                                             dup2(0, 77);
                                             signal(SIGTERM, SIG_IGN);
                                             signal(SIGCHLD, SIG_IGN);
                                             sigset_t some;
                                             sigemptyset(&some);
                                             sigaddset(&some, SIGHUP);
                                             sigprocmask(SIG_BLOCK, &some, nullptr);
                                         }});
    EXPECT_EQ(played.status, PAM_SUCCESS) << played.log;
    const std::string seen = sandbox.seen();
    for (const char* line :
         {"service=sshd\n", "user=facts\n", "language=de_DE.UTF-8\n", "page=/second\n", "mode=3\n",
          "key=2\n", "echo=0\n", "environment=LANG=de_DE.UTF-8,LC_TIME=en\n",
          "descriptors=/dev/null,/dev/null,/dev/null,socket\n", "others=0\n", "folder=/\n",
          "leader=True\n", "blocked=0000000000000000\n"})
        EXPECT_THAT(seen, HasSubstr(line));
    EXPECT_THAT(seen, testing::ContainsRegex("left=(40000|399[0-9][0-9])\n"));
    EXPECT_THAT(seen, HasSubstr("ignored=[<Signals.SIGXFSZ: 25>]"));
}

TEST(PamModule, PassesPromptsOnAndNeverThePassword) {
    const ModuleSandbox sandbox;
    const Played right = play(sandbox, {.user = "codes"});
    EXPECT_EQ(right.status, PAM_SUCCESS);
    EXPECT_THAT(right.prompts, ElementsAre("4 Telephone at hand?", "2 Code from Phone: "));
    EXPECT_EQ(play(sandbox, {.user = "codes", .person = {.typed = "654321"}}).status, PAM_AUTH_ERR);

    const ModuleSandbox other;
    other.stack("login", "auth optional pam_unix.so nodelay\nauth required MODULE");
    const Played played = play(other, {.user = "codes", .person = {.typed = "s3cret-password"}});
    EXPECT_EQ(played.status, PAM_AUTH_ERR);
    // Kind 5, answer 2, an empty text.
    EXPECT_THAT(other.seen(), HasSubstr("reply=4b565001050200"
                                        "00\n"));
    EXPECT_THAT(played.log + other.seen(), Not(HasSubstr("s3cret")));
}

TEST(PamModule, AsksOnceInAStackThatComesPastItTwiceAndAgainForAnotherCall) {
    const ModuleSandbox sandbox;
    sandbox.stack("login", "auth required MODULE\nauth required MODULE");
    EXPECT_EQ(play(sandbox, {.user = "codes"}).prompts.size(), 2u);
    EXPECT_EQ(play(sandbox, {.user = "codes", .person = {.typed = "0"}}).prompts.size(), 4u);
}

TEST(PamModule, LetsTheHelperWorkOnAfterItsVerdict) {
    const ModuleSandbox sandbox;
    const Played played = play(sandbox, {.user = "worker"});
    EXPECT_EQ(played.status, PAM_SUCCESS);
    EXPECT_LT(played.milliseconds, 900);
    EXPECT_TRUE(waitFor([&] { return sandbox.seen().find("worked on") != std::string::npos; }));
}

TEST(PamModule, AsksNobodyWhoIsExempt) {
    const std::string later = std::to_string(time(nullptr) + 60);
    const struct {
        const char* what;
        const char* user;
        const char* service;
        std::string options;
        std::string breakGlass;
        bool asked;
    } rows[] = {
        {"root", "root", "login", "", "", false},
        {"root when it must", "root", "login", "root = require", "", true},
        {"local account", "daemon", "login", "", "", false},
        {"local accounts when they must", "daemon", "sshd", "local = require", "", true},
        {"another uid than the name service says", "bin", "login", "", "", true},
        {"local name without a usable hash", "sys", "login", "", "", true},
        {"local account behind an overlong line", "sync", "login", "", "", false},
        {"directory account", "granted", "login", "", "", true},
        {"another spelling of root", "ROOT", "login", "", "", true},
        {"service not listed", "granted", "cron", "", "", false},
        {"sudo stands for sudo-i", "granted", "sudo-i", "services = su sudo", "", true},
        {"service no longer listed", "granted", "login", "services = sshd", "", false},
        {"break-glass", "granted", "login", "", later + "\n", false},
        {"break-glass over root = require", "root", "login", "root = require", later, false},
        {"break-glass that ended", "granted", "login", "", "1000000000\n", true},
        {"break-glass without an end", "granted", "login", "", "soon\n", true},
        {"unknown options deny nobody", "daemon", "login", "colour = blue\nroot = perhaps", "",
         false},
    };
    for (const auto& row : rows) {
        const ModuleSandbox sandbox;
        TestSandbox::write(sandbox.path("pam_kesh.conf"), row.options);
        if (!row.breakGlass.empty())
            TestSandbox::write(sandbox.path("breakglass"), row.breakGlass);
        const Played played = play(sandbox, {.user = row.user, .service = row.service});
        EXPECT_EQ(!sandbox.seen().empty(), row.asked) << row.what << ": " << played.log;
    }
}

TEST(PamModule, BelievesNoFileThatOthersCanWrite) {
    const ModuleSandbox sandbox;
    for (const char* name : {"pam_kesh.conf", "breakglass"}) {
        TestSandbox::write(sandbox.path(name), std::string(name) == "breakglass"
                                                   ? std::to_string(time(nullptr) + 60)
                                                   : "services = nothing");
        std::filesystem::permissions(sandbox.path(name), std::filesystem::perms(0666));
    }
    const Played played = play(sandbox, {.user = "granted"});
    EXPECT_THAT(sandbox.seen(), HasSubstr("pid="));
    EXPECT_THAT(played.log, HasSubstr("its options are not used"));

    const ModuleSandbox linked;
    TestSandbox::write(linked.path("elsewhere"), "services = nothing");
    std::filesystem::create_symlink(linked.path("elsewhere"), linked.path("pam_kesh.conf"));
    play(linked, {.user = "granted"});
    EXPECT_THAT(linked.seen(), HasSubstr("pid="));
}

TEST(PamModule, RefusesNamesThatNoAccountCanHave) {
    const ModuleSandbox sandbox;
    const struct {
        const char* what;
        std::string user;
        bool asked;
    } rows[] = {{"10,000 characters", std::string(10000, 'a'), false},
                {"257 characters", std::string(257, 'a'), false},
                {"path", "../../etc/passwd", false},
                {"line feed", "eve\nuser root not asked: root", false},
                {"escape", "eve\x1b[2J", false},
                {"C1 control", "eve\xc2\x9b", false},
                {"line separator", "eve\xe2\x80\xa8", false},
                {"invalid UTF-8", "eve\xff", false},
                {"surrogate", "eve\xed\xa0\x80", false},
                {"percent", "%n%s%n", true},
                {"principal", "dora@EXAMPLE.COM", true},
                {"domain", "EXAMPLE\\dora", true}};
    for (const auto& row : rows) {
        std::filesystem::remove(sandbox.path("seen"));
        const Played played = play(sandbox, {.user = row.user});
        EXPECT_EQ(played.status, PAM_AUTH_ERR) << row.what;
        EXPECT_EQ(!sandbox.seen().empty(), row.asked) << row.what;
        EXPECT_EQ(std::count(played.log.begin(), played.log.end(), '\n'), 1) << played.log;
        EXPECT_THAT(played.log, HasSubstr("denied: ")) << row.what;
        EXPECT_THAT(played.log, Not(HasSubstr("eve"))) << row.what;
    }
}

}  // namespace
}  // namespace quorl::test
