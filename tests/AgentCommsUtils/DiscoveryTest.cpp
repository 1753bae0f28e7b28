#include "MachineDomain.h"
#include "Subprocess.h"
#include "UserRecords.h"

#include <utmp.h>

namespace quorl::test {
namespace {

const std::string bindings = "Library/Preferences/OpenDirectory/Configurations/Active Directory/";
const std::string kerberos = "Library/Preferences/edu.mit.Kerberos";
const std::string loginWindow = "Library/Preferences/com.apple.loginwindow.plist";
const std::string tool = "usr/sbin/dsconfigad";
const std::string sessions = "var/log/wtmp";

const std::string toolReport =
    "Active Directory Forest          = corp.example.test\n"
    "Active Directory Domain          = tool.example.test\n"
    " Computer Account                 = indented$\n"
    "Computer Account                 = toolmac$\n\n"
    "Advanced Options - User Experience\n";

std::string plist(const std::string& members) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + members +
           "</dict></plist>\n";
}
std::string text(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>";
}
std::string dictionary(const std::string& key, const std::string& members) {
    return "<key>" + key + "</key><dict>" + members + "</dict>";
}
std::string binding(const std::string& account, const std::string& domain) {
    return plist(
        text("trustaccount", account) +
        dictionary("module options", dictionary("ActiveDirectory", text("domain", domain))));
}
std::string session(short type, const std::string& user) {
    utmp entry{};
    entry.ut_type = type;
    user.copy(entry.ut_user, sizeof entry.ut_user);
    return {reinterpret_cast<const char*>(&entry), sizeof entry};
}

using Files = std::map<std::string, std::string>;

class DiscoveryTest : public testing::Test {
  protected:
    // Without a tool of the system's own, ours would be asked; this one knows nothing.
    DiscoveryTest() { lay({{tool, ""}}); }

    void lay(const Files& files) {
        for (const auto& [path, content] : files) {
            const auto target = sandbox.system() / path;
            if (path == tool) {
                TestSandbox::write(sandbox.root() / "report", content);
                TestSandbox::write(target, "#!/bin/sh\n[ \"$*\" = -show ] || exit 1\ncat '" +
                                               (sandbox.root() / "report").string() + "'\n");
                std::filesystem::permissions(target, std::filesystem::perms::owner_all);
            } else {
                TestSandbox::write(target, content);
            }
        }
    }
    MachineEnvironment discovered(MachineEnvironment environment = {}) {
        discoverEnvironment(environment);
        return environment;
    }

    const TestSandbox sandbox;
    const LogCapture log;
};

using Name = std::optional<std::string>;

struct Machine {
    std::string what;
    Files files;
    struct Names {
        Name machine, domain;
        Name domainAlone;  ///< of getMachineDomainName
    } names;
    bool fails = false;  ///< on the way, which is logged

    friend void PrintTo(const Machine& machine, std::ostream* out) { *out << machine.what; }
};

class MachinesTest : public DiscoveryTest, public testing::WithParamInterface<Machine> {};

TEST_P(MachinesTest, AreNamedInTheOrderOfPrecedence) {
    const auto& [what, files, names, fails] = GetParam();
    lay(files);
    const auto environment = discovered();
    EXPECT_EQ(environment.machineName.value_or("(none)"), names.machine.value_or("(none)"));
    EXPECT_EQ(environment.domainName.value_or("(none)"), names.domain.value_or("(none)"));
    EXPECT_EQ(log.has("setEnvironmentalDetails : Exception : "), fails) << log.text();
    EXPECT_EQ(getMachineDomainName().value_or("(none)"), names.domainAlone.value_or("(none)"));
}

const std::string hostName = [] {
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    return std::string(name.data(), strcspn(name.data(), "."));
}();

INSTANTIATE_TEST_SUITE_P(
    All, MachinesTest,
    testing::Values(
        Machine{"ABindingNamesBoth",
                {{bindings + "corp.plist", binding("mac1$", "corp.test")},
                 {kerberos, "default_realm = KRB.TEST\n"}},
                {"mac1", "corp.test", "corp.test"}},
        Machine{"TheToolWinsForTheDomainAlone",
                {{bindings + "corp.plist", binding("macé", "corp.test")}, {tool, toolReport}},
                {"mac", "corp.test", "tool.example.test"}},
        Machine{"AnEntryOfAnotherNameStillHidesKerberos",
                {{bindings + "README", "x"},
                 {kerberos, "default_realm = KRB.TEST\n"},
                 {tool, toolReport}},
                {"toolmac", "tool.example.test", "tool.example.test"}},
        Machine{"OptionsOfTheWrongKindAreAFailure",
                {{bindings + "a.plist",
                  plist(text("trustaccount", "mac1$") +
                        dictionary("module options", text("ActiveDirectory", "x")))}},
                {"mac1", {}, {}},
                true},
        Machine{"BinaryJunkIsAFailure",
                {{bindings + "a.plist", std::string("bplist00\xff\0\xfe\x01", 12)},
                 {bindings + "b.plist", ""},
                 {tool, toolReport}},
                {"toolmac", "tool.example.test", "tool.example.test"},
                true},
        Machine{"KerberosNamesTheRealmAndTheComputerItself",
                {{kerberos,
                  "[libdefaults]\n  default_realm = FIRST.TEST\n"
                  "default_realm = CORP.EXAMPLE.TEST\n[realms]"},
                 {"etc/krb5.conf", "default_realm = OTHER.TEST\n"},
                 {"etc/machine-info", "CHASSIS=desktop\nPRETTY_HOSTNAME=\"Ada\\\"s Mac\"\n"}},
                {"Ada\"s Mac", "CORP.EXAMPLE.TEST", "CORP.EXAMPLE.TEST"}},
        Machine{"ThisSystemsKerberosFileStandsIn",
                {{"etc/krb5.conf", "[libdefaults]\n\tdefault_realm = OTHER.TEST\n"},
                 {"etc/machine-info", "PRETTY_HOSTNAME=\n"}},
                {hostName, "OTHER.TEST", "OTHER.TEST"}},
        Machine{"ARealmWithoutBlanksEndsTheStep",
                {{kerberos,
                  "default_realm = FIRST.TEST\ndefault_realm=CORP\n"
                  "default_realm = LAST.TEST\n"}},
                {{}, "FIRST.TEST", "FIRST.TEST"},
                true},
        Machine{"KerberosBeyond7BitsIsAFailure",
                {{kerberos, "# Zürich\ndefault_realm = CORP.TEST\n"}},
                {},
                true},
        Machine{"AToolThatPrintsJunk",
                {{kerberos, "default_realm = CORP.TEST\n"},
                 {tool, std::string("Active Directory Domain = \xff\xfe\0\n", 30)}},
                {hostName, "CORP.TEST", "CORP.TEST"}},
        Machine{"ABlankAfterTheNameIsNoWord",
                {{tool, "Active Directory Domain = corp.test \r\nComputer Account = mac2$\r\n"}},
                {"mac2", "corp.test", "corp.test"},
                true}),
    [](const auto& info) { return info.param.what; });

TEST_F(DiscoveryTest, FindsTheLastUser) {
    const struct {
        std::string path, content, user;
        std::size_t exceptions;
    } rows[] = {
        {sessions, "junk", "", 0},
        {sessions,
         session(USER_PROCESS, "ada") + session(USER_PROCESS, "grace") +
             session(DEAD_PROCESS, "alan") + session(USER_PROCESS, "a\nb") +
             session(USER_PROCESS, "\xff") + session(USER_PROCESS, "") + "torn",
         "grace", 0},
        {loginWindow, plist(text("lastUserName", "hedy")), "hedy", 0},
        {loginWindow, plist("<key>lastUserName</key><array/>"), "", 1},
        {loginWindow, "no plist", "", 1},
    };
    lay({{tool, toolReport}});
    for (const auto& row : rows) {
        const LogCapture lines;
        lay({{row.path, row.content}});
        EXPECT_EQ(discovered().defUser, row.user);
        // One more is due: without bindings and Kerberos their step fails.
        EXPECT_EQ(lines.count("Exception : "), row.exceptions + 1) << lines.text();
    }
}

TEST_F(DiscoveryTest, UserRecordsTellTheLocalFilesFromTheDomainService) {
    // "root" is known to the name service of every machine, and here not to the local files.
    lay({{tool, "Active Directory Domain = corp.example.test\n"},
         {"etc/passwd", "# comment\nbroken\nada:x:1000:1000::/home/ada:/bin/sh\n"}});
    EXPECT_EQ(getUserDomain("ada"), "LOCAL_ACCOUNT");
    EXPECT_TRUE(log.has("pam_kesh: getUserDomain - LOCAL_ACCOUNT\n"));
    EXPECT_EQ(getUserDomain("root"), "corp.example.test");
    EXPECT_TRUE(log.has("nodeLocation - /Active Directory/CORP/corp.example.test\n"));
    EXPECT_EQ(getUserDomain("no such user"), std::nullopt);
    EXPECT_TRUE(log.has("pam_kesh: getUserDomain - (null)\n"));
}

TEST_F(DiscoveryTest, OfSeveralRecordsTheFirstThatIsLocalOrOfTheMachinesDomainWins) {
    const auto record = [](const std::string& node) { return UserRecord{"ada", {node}, {node}}; };
    const UserRecord local = record("/Local/Default");
    const UserRecord corp = record("/Active Directory/CORP/Corp.Test");
    const UserRecord other = record("/Active Directory/OTHER/other.test");
    const struct {
        std::string machineDomain;
        std::vector<UserRecord> records;
        std::string domain;
    } rows[] = {{"corp.test", {other, corp, local}, "Corp.Test"},
                {"corp.test", {other, local, corp}, "LOCAL_ACCOUNT"},
                {"Corp.Test", {corp, local}, "LOCAL_ACCOUNT"},
                {"Corp.Test", {other, corp}, "other.test"}};
    for (const auto& row : rows) {
        lay({{tool, "Active Directory Domain = " + row.machineDomain + "\n"}});
        EXPECT_EQ(getUserDomain(row.records), row.domain);
    }
}

// Our own stand-in for the tool, asked with programs that answer as realmd and Kerberos do.
TEST_F(DiscoveryTest, OurToolReportsTheRealmThatTheMachineIsJoinedTo) {
    const auto program = [&](const std::string& path, const std::string& output) {
        TestSandbox::write(sandbox.system() / path, "#!/bin/sh\ncat <<'END'\n" + output + "END\n");
        std::filesystem::permissions(sandbox.system() / path, std::filesystem::perms::owner_all);
    };
    const auto reported = [&] {
        return outputOf({QUORL_SOURCE_DIR "/packaging/dsconfigad", "-show"});
    };
    const auto realm = [](const std::string& name, const std::string& configured,
                          const std::string& software) {
        return name + ".test\n  type: kerberos\n  realm-name: " + name +
               ".REALM\n  domain-name: " + name + ".test\n  configured: " + configured +
               "\n  server-software: " + software + "\n  client-software: sssd\n";
    };
    EXPECT_EQ(reported(), "");
    program("usr/sbin/realm", realm("a", "no", "active-directory") + realm("b", "member", "ipa"));
    EXPECT_EQ(reported(), "");
    program("usr/sbin/realm", realm("a", "no", "active-directory") +
                                  realm("b", "kerberos-member", "active-directory") +
                                  realm("c", "kerberos-member", "active-directory"));
    EXPECT_EQ(reported(), "Active Directory Domain          = b.test\n");
    program("usr/bin/klist",
            "Keytab name: FILE:/etc/krb5.keytab\nKVNO Principal\n---- ------\n"
            "   3 OTHER$@a.REALM\n   3 host/mymac@b.REALM\n   3 MYMAC$@b.REALM\n   4 X$@b.REALM\n");
    EXPECT_EQ(reported(),
              "Active Directory Domain          = b.test\n"
              "Computer Account                 = MYMAC$\n");
}

}  // namespace
}  // namespace quorl::test
