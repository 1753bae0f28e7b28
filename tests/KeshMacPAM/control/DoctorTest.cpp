#include "KeshctlStage.h"
#include "TestServer.h"

#include <gmock/gmock.h>

namespace quorl::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string accessKey(64, 'c');
const std::string installationKey = "demo-installation-key";
const std::string helper = KESH_HELPER;

// A machine of which everything is in order, with LightDM, sshd and an enrolled user.
class DoctorTest : public testing::Test, public KeshctlStage {
  protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "looks at owners and modes as root";
        trustTestAuthority();
        setenv("QUORL_AGENT_ACCOUNT", "nobody", 1);
        setenv("LD_PRELOAD", "libnss_wrapper.so", 1);
        setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
        setenv("NSS_WRAPPER_DISABLE_DEEPBIND", "1", 1);
        const std::string root = sandbox.root();
        TestSandbox::write(root + "/passwd",
                           "root:x:0:0::/root:/bin/sh\nnobody:x:65534:65534::/:/bin/sh\n"
                           "dora:x:4711:4711::/home/dora:/bin/sh\n");
        TestSandbox::write(root + "/group", "root:x:0:\nnogroup:x:65534:\n");
        setenv("NSS_WRAPPER_PASSWD", (root + "/passwd").c_str(), 1);
        setenv("NSS_WRAPPER_GROUP", (root + "/group").c_str(), 1);
        std::filesystem::permissions(sandbox.support(), std::filesystem::perms(0700));
        makeMachine();
        TestSandbox::write(root + "/users.json",
                           json{{"dora@example.com",
                                 {{"secret", secret},
                                  {"enrolled", true},
                                  {"policy",
                                   {{"MFA_NO_OF_FACTORS", 1},
                                    {"ENABLED_AUTHS", {3}},
                                    {"MANDATORY_AUTHS", json::array()},
                                    {"OFFLINE_MFA_LIMIT_TYPE", 2},
                                    {"OFFLINE_MFA_LIMIT_VALUE", 10}}},
                                  {"authenticators", {{"3", {{"secret", secret}}}}}}}}
                               .dump());
        server.emplace("server", std::vector<std::string>{"--access-key", accessKey, "--users",
                                                          root + "/users.json", "--token",
                                                          "canary-token=dora@example.com"});
        const Outcome setup =
            keshctl({"setup", "--server", "localhost", "--port", std::to_string(server->port()),
                     "--installation-key-file", "-"},
                    installationKey);
        ASSERT_EQ(setup.status, 0) << setup.said;
        ASSERT_EQ(keshctl({"offline", "sync"}, "canary-token\n").status, 0);
    }
    void makeMachine() {
        write("/etc/pam.d/common-auth",
              "auth [success=1 default=ignore] pam_unix.so nullok\n"
              "auth requisite pam_deny.so\nauth required pam_permit.so\n"
              "auth [success=3 ignore=3 module_unknown=ignore default=die] pam_kesh.so\n"
              "auth [success=2 default=ignore] pam_succeed_if.so quiet uid eq 0\n"
              "auth [success=1 default=ignore] pam_localuser.so\nauth requisite pam_deny.so\n");
        for (const char* door : {"lightdm", "login", "sshd"})
            write(std::string("/etc/pam.d/") + door, "@include common-auth\n");
        write("/etc/pam.d/su", "auth sufficient pam_rootok.so\n@include common-auth\n");
        write("/etc/passwd", "root:x:0:0::/root:/bin/sh\n");
        write("/etc/shadow", "root:$y$j9T$abcdefghijklmnop$0123456789:1::::::\n");
        write("/etc/X11/default-display-manager", "/usr/sbin/lightdm\n");
        write(lightdmDropIn, "greeter-setup-script=/usr/libexec/quorl/quorl-greeter start\n");
        write("/usr/lib/systemd/system/QUORLLoginAgent.service", "[Service]\n");
        write(helper.substr(0, helper.rfind('/')) + "/QUORLLoginAgent", "");
        program(helper, "exit 64");
        program("/usr/sbin/lightdm", "");
        program("/usr/bin/setpriv", "echo ok");
        program("/usr/sbin/sshd", "echo usepam yes; echo kbdinteractiveauthentication yes");
        const auto folder = sandbox.system() / "usr/lib/x86_64-linux-gnu/security";
        std::filesystem::create_directories(folder);
        // Any module that PAM could load does.
        for (const auto& found :
             std::filesystem::directory_iterator("/usr/lib", std::filesystem::directory_options()))
            if (const auto module = found.path() / "security/pam_permit.so";
                std::filesystem::exists(module))
                std::filesystem::copy_file(module, folder / "pam_kesh.so");
    }
    void set(const std::string& name, const std::string& value) {
        outputOf({"python3", "-c",
                  "import plistlib,sys;p,n,v=sys.argv[1:];d=plistlib.load(open(p,'rb'));d[n]=v;"
                  "plistlib.dump(d,open(p,'wb'))",
                  (sandbox.support() / "config.plist").string(), name, value});
    }
    // Numbers of the broken checks, by what a program would read.
    std::vector<int> brokenChecks(const std::string& user = "dora") {
        const Outcome outcome = keshctl({"doctor", "--json", "--user", user});
        const json list = json::parse(outcome.said, nullptr, false);
        std::vector<int> numbers;
        EXPECT_EQ(list.size(), 20) << outcome.said;
        said.clear();
        for (const auto& check : list)
            if (check["mark"] == "broken") {
                numbers.push_back(check["number"]);
                EXPECT_NE(check["fix"], "") << check;
                said += check["text"].get<std::string>() + "\n";
            }
        EXPECT_EQ(outcome.status, numbers.empty() ? 0 : numbers.front());
        return numbers;
    }

    const std::string secret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
    const std::string lightdmDropIn = "/usr/share/lightdm/lightdm.conf.d/50-QUORLLoginAgent.conf";
    std::optional<TestServer> server;
    std::string said;
};

TEST_F(DoctorTest, FindsNothingOnAWholeMachineAndNamesEachLinkThatIsBrokenAlone) {
    ASSERT_THAT(brokenChecks(), IsEmpty()) << said;
    const TestServer stranger("self-signed");
    TestSandbox::write(sandbox.root() / "reply",
                       "HTTP/1.1 200 OK\r\nDate: Mon, 02 Jan 2006 15:04:05 GMT\r\n"
                       "Content-Length: 2\r\n\r\n{}");
    const TestServer yesterday("server", {"--raw-file", (sandbox.root() / "reply").string()});
    const std::string guard = fmt::format(
        R"({{"version":1,"wrong":0,"locks":1,"lockLength":900,"lockedUntil":{0},"newest":{0},"used":{{}}}})",
        time(nullptr) + 800);
    // Ways to break it.
    const auto writes = [this](const char* path, const char* text) {
        return [=, this] { write(path, text); };
    };
    const auto runs = [this](const std::string& path, const char* script) {
        return [=, this] { program(path, script); };
    };
    const auto sets = [this](const char* name, const std::string& value) {
        return [=, this] { set(name, value); };
    };
    const auto modes = [](const std::filesystem::path& path, unsigned mode) {
        return [=] { std::filesystem::permissions(path, std::filesystem::perms(mode)); };
    };
    const auto portOf = [](const TestServer& other) { return std::to_string(other.port()); };
    const auto config = sandbox.support() / "config.plist";
    const struct {
        int number;
        std::function<void()> breakIt;
        std::string says;
    } cases[] = {
        {1, writes("/etc/pam.d/common-auth", "auth required pam_unix.so\n"), "nobody is"},
        {1,
         [&] {
             const std::string text = file("/etc/pam.d/common-auth");
             write("/etc/pam.d/common-auth",
                   text.substr(0, text.find("auth [success=1 default=ignore] pam_localuser")));
         },
         "not whole"},
        {2, writes("/etc/pam.d/login", "auth sufficient pam_permit.so\n@include common-auth\n"),
         "login: /etc/pam.d/login:1 (pam_permit.so) lets in before us"},
        {2,
         writes("/etc/pam.d/login",
                "auth [success=9 default=ignore] pam_x.so\n@include common-auth\n"),
         "jumps past us"},
        {3, writes("/usr/lib/x86_64-linux-gnu/security/pam_kesh.so", "x"), "cannot be loaded"},
        {4, runs(helper, "exit 1"), "does not run"},
        {4, runs("/usr/bin/dpkg-query", "echo 1.0; echo 1.1"), "several versions"},
        {5, [&] { TestSandbox::write(config, "<plist"); }, "is damaged"},
        {5, modes(config, 0644), "open to others"},
        {5,
         [&] {
             // Shared with the agent, and then written by hand.
             const auto share = [&](const char* name, mode_t mode) {
                 const std::string path = sandbox.support() / name;
                 EXPECT_EQ(chown(path.c_str(), 0, 65534) + chmod(path.c_str(), mode), 0) << path;
             };
             share(".", 0750);
             share("offline-data.json", 0640);
             share("dekey.key", 0640);
         },
         "cannot be read by the agent"},
        {6, sets("LOGIN_MFA", "false"), "nobody is asked"},
        {7, writes("/etc/shadow", "root:*:1::::::\n"), "nobody gets in"},
        {8, sets("SERVERNAME", "nowhere.invalid"), "does not resolve"},
        {9, sets("PORTNUMBER", "1"), "does not answer"},
        {10, sets("PORTNUMBER", portOf(stranger)), "the missing authority is"},
        {10, sets("RESTRICT_BADCERT", "false"), "is not looked at"},
        {11, sets("PORTNUMBER", portOf(yesterday)), "s ahead of"},
        {12, sets("AGENT_ID", ""), "no AGENT_ID"},
        {13, sets("ACCESS_KEY", underTheValueKey(std::string(64, 'd'))), "status 401"},
        {14, writes("/.flatpak-info", ""), "/.flatpak-info"},
        {14, runs("/usr/bin/setpriv", "echo bwrap: no permissions"), "no permissions"},
        {14, writes("/run/quorl-greeter/environment", "DISPLAY=:0\n"), "does not listen"},
        {15, [&] { std::filesystem::remove(sandbox.system().string() + lightdmDropIn); },
         "is not set"},
        {16, writes("/etc/lightdm/lightdm.conf", "[Seat:*]\nautologin-user=ada\n"), "lets ada in"},
        {17, runs("/usr/sbin/sshd", "echo usepam yes; echo kbdinteractiveauthentication no"),
         "cannot prompt"},
        {18, modes(sandbox.support(), 0777), "open to others"},
        {20,
         [&] {
             TestSandbox::write(sandbox.root() / "guard/4711", guard);
             modes(sandbox.root() / "guard", 0700)();
         },
         "locked it"},
    };
    const auto whole = sandbox.root() / "whole";
    const auto copy = [](const auto& from, const auto& to) {
        std::filesystem::remove_all(to);
        outputOf({"cp", "-a", from.string(), to.string()});
    };
    copy(sandbox.system(), whole);
    copy(sandbox.support(), sandbox.root() / "whole-support");
    for (const auto& c : cases) {
        c.breakIt();
        EXPECT_THAT(brokenChecks(), ElementsAre(c.number)) << c.says << ": " << said;
        EXPECT_THAT(said, HasSubstr(c.says));
        copy(whole, sandbox.system());
        copy(sandbox.root() / "whole-support", sandbox.support());
    }
    EXPECT_EQ(keshctl({"unlock", "dora"}).status, 0);
    EXPECT_THAT(brokenChecks(), IsEmpty()) << "unlocked";
    EXPECT_THAT(brokenChecks("nobody-here"), ElementsAre(19));
}

TEST_F(DoctorTest, EndsInTimeWhateverHangs) {
    const TestServer mute("server", {"--silent-handshake"});
    set("PORTNUMBER", std::to_string(mute.port()));
    program("/usr/sbin/sshd", "sleep 60");
    program("/usr/bin/setpriv", "sleep 60");
    program(helper, "sleep 60");
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = keshctl({"doctor", "--user", "dora"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(outcome.status, 4) << outcome.said;
    EXPECT_THAT(outcome.said, HasSubstr("First broken link: 4 (helper)"));
    std::istringstream lines(outcome.said);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 80) << line;
}

TEST_F(DoctorTest, ReportHoldsNoSecret) {
    const std::string codes[] = {"738291",
                                 "canary-token-4711-abc",
                                 std::string(64, 'e'),
                                 accessKey,
                                 installationKey,
                                 secret,
                                 "c2VjcmV0LXNlY3JldC1zZWNyZXQtMTIz"};
    set("INSTALLATION_KEY", underTheValueKey(installationKey));
    set("CANARY", codes[2]);
    std::ofstream(sandbox.support() / "VantorixClient.log", std::ios::app)
        << "code 738291 typed\nDATA_ACCESS_TOKEN=canary-token-4711-abc\nkey " << codes[2]
        << "\nAuthorization: Basic 1001:" << codes[6] << "\n\"password\": \"hunter2\"\n"
        << "sign-in of dora\x1b[31m denied\n";
    const std::string bundle = sandbox.root() / "report.tar.gz";
    const Outcome outcome = keshctl({"report", bundle});
    ASSERT_EQ(outcome.status, 0) << outcome.said;
    const std::string held = outputOf({"tar", "-xzOf", bundle});
    for (const std::string& code : codes)
        EXPECT_THAT(held, Not(HasSubstr(code)));
    for (const char* never : {"hunter2", "\x1b"})
        EXPECT_THAT(held, Not(HasSubstr(never)));
    for (const char* told : {"sign-in of dora", "LOGIN_MFA = true", "ACCESS_KEY = <set>",
                             "signed call", "@include common-auth"})
        EXPECT_THAT(held, HasSubstr(told));
    EXPECT_EQ(std::filesystem::status(bundle).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(keshctl({"report", bundle}).status, 1) << "never over a file";
}

TEST_F(DoctorTest, StatusAndBreakGlassShowOnOneScreen) {
    ASSERT_EQ(keshctl({"breakglass", "--for", "2h"}).status, 0);
    const Outcome status = keshctl({"status", "dora"});
    EXPECT_EQ(status.status, 0);
    for (const char* told : {"accepts this machine", "asked at      lightdm, login, sshd",
                             "dora@example.com", "10 sign-ins left", "break-glass   until"})
        EXPECT_THAT(status.said, HasSubstr(told));
    EXPECT_EQ(keshctl({"breakglass", "--off"}).status, 0);
    EXPECT_THAT(keshctl({"status"}).said, HasSubstr("break-glass   none"));
    for (const char* odd : {"25h", "0m", "2", "-1h", "2d", "99999999999h"})
        EXPECT_EQ(keshctl({"breakglass", "--for", odd}).status, 64) << odd;
}

}  // namespace
}  // namespace quorl::test
