#include "TestSandbox.h"
#include "UserRecords.h"

namespace quorl::test {
namespace {

class UserRecordsTest : public testing::Test {
  protected:
    void joinTo(const std::string& domain) const {
        const auto tool = sandbox.system() / "usr/sbin/dsconfigad";
        TestSandbox::write(tool, "#!/bin/sh\necho 'Active Directory Domain = " + domain + "'\n");
        std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
    }
    const TestSandbox sandbox;
    const LogCapture log;
};

TEST_F(UserRecordsTest, TellTheLocalFilesFromTheDomainService) {
    joinTo("corp.example.test");
    // "root" is known to the name service of every machine, and here not to the local files.
    TestSandbox::write(sandbox.system() / "etc/passwd",
                       "# comment\nbroken\nada:x:1000:1000::/home/ada:/bin/sh\n");
    EXPECT_EQ(getUserDomain("ada"), "LOCAL_ACCOUNT");
    EXPECT_TRUE(log.has("pam_kesh: getUserDomain - LOCAL_ACCOUNT\n"));
    EXPECT_EQ(getUserDomain("root"), "corp.example.test");
    EXPECT_TRUE(log.has("nodeLocation - /Active Directory/CORP/corp.example.test\n"));
    EXPECT_EQ(getUserDomain("no such user"), std::nullopt);
    EXPECT_TRUE(log.has("pam_kesh: getUserDomain - (null)\n"));
}

TEST_F(UserRecordsTest, OfSeveralRecordsTheFirstThatIsLocalOrOfTheMachinesDomainWins) {
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
        joinTo(row.machineDomain);
        EXPECT_EQ(getUserDomain(row.records), row.domain);
    }
}

}  // namespace
}  // namespace quorl::test
