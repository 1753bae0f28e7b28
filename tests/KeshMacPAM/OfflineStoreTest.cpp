#include "Handle.h"
#include "OfflineDataJSONManipulator.h"
#include "StoreFixture.h"
#include "TestClock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/resource.h>

namespace quorl {
namespace {

using test::LogCapture;
using test::modeOf;
using test::outputOf;
using test::StoreTest;
using test::Subprocess;
using test::TestSandbox;
namespace fs = std::filesystem;

const Value userData = {{"AUTH_ENROLLMENT", {{"7", {{"SECRET_KEY", "gehe\"im\n日本"}}}}},
                        {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 3}};
const std::string user = "jane@EXAMPLE";
const std::string script = QUORL_SOURCE_DIR "/tests/KeshMacPAM/offline_store.py";

TEST_F(StoreTest, IsReadByAnIndependentProgram) {
    umask(0);
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    OfflineDataHandler::setOfflineData(user, "USER_DATA", userData);
    OfflineDataHandler::setOfflineData(user, "POLICY_DATA", {{"ENABLED_AUTHS", {7, 8}}});
    const Value read =
        Value::parse(outputOf({"python3", script, "read", sandbox_.support(), "an access key"}));
    EXPECT_EQ(
        read,
        Value({{user, {{"USER_DATA", userData}, {"POLICY_DATA", {{"ENABLED_AUTHS", {7, 8}}}}}}}));
    for (const char* file : {"offline-data.json", "dekey.key", "offline-data.lock"})
        EXPECT_EQ(modeOf(sandbox_.support() / file), 0600U) << file;
}

// Before the fixture settles the paths.
struct AgentIsDaemon {
    AgentIsDaemon() { setenv("QUORL_AGENT_ACCOUNT", "daemon", 1); }
};
class SharedStoreTest : AgentIsDaemon, public StoreTest {};

// As a package installs it: root's folder, and the agent's account reads.
TEST_F(SharedStoreTest, StaysReadableForTheAgentsAccount) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can hand a file to another group";
    const gid_t daemon = getpwnam("daemon")->pw_gid;
    ASSERT_EQ(chown(sandbox_.support().c_str(), 0, daemon), 0);
    TestSandbox::write(dataFile_, "");
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    ASSERT_TRUE(OfflineDataHandler::setOfflineData(user, "K", 1));
    for (const fs::path& file : {dataFile_, sandbox_.support() / "dekey.key"}) {
        struct stat status {};
        ASSERT_EQ(stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_gid, daemon) << file;
        EXPECT_EQ(modeOf(file), 0640U) << file;
    }
    EXPECT_EQ(modeOf(sandbox_.support() / "offline-data.lock"), 0600U);
}

TEST_F(StoreTest, ReadsAndChangesAThousandUsersOfAnIndependentWriter) {
    Value users;
    for (int i = 0; i < 1000; ++i)
        users[fmt::format("user{}@EXAMPLE", i)] = {{"USER_DATA", userData}};
    TestSandbox::write(sandbox_.root() / "json", users.dump());
    Subprocess writer({.command = {"python3", script, "write", sandbox_.support(), "an access key"},
                       .input = sandbox_.root() / "json"});
    ASSERT_EQ(writer.wait(), 0);
    fs::permissions(dataFile_, static_cast<fs::perms>(0644));
    EXPECT_EQ(OfflineDataHandler::getEnrolledUserList().size(), 1000U);
    OfflineDataHandler::setOfflineData("user500@EXAMPLE", "K", "v");
    users["user500@EXAMPLE"]["K"] = "v";
    EXPECT_EQ(OfflineDataJSONManipulator(dataFile_).jsonDictionary(), users);
    EXPECT_EQ(modeOf(dataFile_), 0600U);
}

TEST_F(StoreTest, CannotBeReadOrWrittenWithoutItsKey) {
    TestSandbox::write(dataFile_, "");
    EXPECT_TRUE(OfflineDataHandler::getEnrolledUserList().empty());
    EXPECT_FALSE(log_.has("dekey")) << "an empty file needs no key";

    TestSandbox::write(dataFile_, "sixteen bytes...");
    OfflineDataHandler::setOfflineData(user, "K", 1);
    EXPECT_EQ(TestSandbox::read(dataFile_), "sixteen bytes...");
    EXPECT_EQ(log_.count("saveToFile::Error while encrypting the offline data\n"), 1U);

    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    OfflineDataHandler::setOfflineData(user, "K", 1);
    EXPECT_TRUE(OfflineDataHandler::getOfflineData(user)) << "what cannot be read is replaced";
    setAccessKey("another access key");
    EXPECT_FALSE(OfflineDataHandler::getOfflineData(user));
    EXPECT_TRUE(log_.has("getDataEncryptionKey :: Error parsing JSON data - dekeyJson: "));
}

TEST_F(StoreTest, MakesAKeyOnlyWhereThereIsNone) {
    EXPECT_TRUE(OfflineDataHandler::ensureDataEncryptionKey());
    const std::string made = TestSandbox::read(keyFile_);
    EXPECT_EQ(made.size(), 80U);
    EXPECT_TRUE(OfflineDataHandler::ensureDataEncryptionKey());
    EXPECT_EQ(TestSandbox::read(keyFile_), made);
    TestSandbox::write(keyFile_, "");
    EXPECT_TRUE(OfflineDataHandler::ensureDataEncryptionKey());
    EXPECT_TRUE(OfflineDataHandler::getDataEncryptionKey());
    EXPECT_EQ(log_.count("setDataEncryptionKey :: Going to set DataEncryptionKey...\n"), 2U);
}

std::string nested(int levels, const std::string& open, const std::string& close) {
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += open;
    text += "1";
    for (int i = 0; i < levels; ++i)
        text += close;
    return text;
}

TEST_F(StoreTest, TakesHostileContentAsEmptyOrAbsent) {
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    const std::string notLoaded = "initWithFilePath :: Error loading JSON data: ";
    const std::string noRecord = "getOfflineData::Error reading from file";
    const std::string tooDeep = "nested deeper than 64 levels are left out";
    const auto record = [](const std::string& policy) {
        return R"({"jane@EXAMPLE": {"USER_DATA": {"N": 1}, "POLICY_DATA": )" + policy + "}}";
    };
    struct Case {
        std::string text;
        std::string message;
    };
    for (const Case& c : std::vector<Case>{{"no JSON at all, \"secret\"", notLoaded},
                                           {record("7").substr(0, 40), notLoaded},
                                           {"[{\"jane@EXAMPLE\": {}}]", notLoaded},
                                           {"null", notLoaded},
                                           {R"({"jane@EXAMPLE": null})", noRecord},
                                           {R"({"jane@EXAMPLE": [1]})", noRecord},
                                           {R"({"jane@EXAMPLE": 5})", noRecord},
                                           {"{\"jane@EXAMPLE\": \"\xff\"}", notLoaded},
                                           {record(nested(1000, "[", "]")), tooDeep},
                                           {record(nested(100'000, "{\"a\":", "}")), tooDeep},
                                           {std::string(200'000, '['), notLoaded},
                                           {record(R"("[[[[ in a text \" [[[[")"), ""}}) {
        const LogCapture log;
        writeEncrypted(c.text);
        const auto read = OfflineDataHandler::getOfflineData(user);
        EXPECT_TRUE(c.message.empty() || log.has(c.message)) << c.text.substr(0, 60);
        EXPECT_FALSE(log.has("secret"));
        const bool expectsRecord = c.message == tooDeep || c.message.empty();
        ASSERT_EQ(read.has_value(), expectsRecord) << c.text.substr(0, 60);
        if (read) {
            EXPECT_EQ(read->at("USER_DATA"), Value({{"N", 1}}));
        }
        // What is left of a record that is nested too deeply is still too deep to be written.
        const bool written = OfflineDataHandler::setOfflineData(user, "K", "v");
        EXPECT_EQ(written, c.message != tooDeep) << c.text.substr(0, 60);
        EXPECT_EQ(OfflineDataHandler::getOfflineData(user)->contains("K"), written);
    }
    for (const std::string& noise : {std::string(4096, '\x5a'), std::string(17, 'x')}) {
        TestSandbox::write(dataFile_, noise);
        EXPECT_TRUE(OfflineDataHandler::getEnrolledUserList().empty());
    }
}

TEST_F(StoreTest, RefusesWhatItCouldNotReadBack) {
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    OfflineDataHandler::setOfflineData(user, "K", 1);
    const std::string before = TestSandbox::read(dataFile_);
    OfflineDataHandler::setOfflineData(user, "K", Value::parse(nested(16, "[", "]")));
    OfflineDataHandler::setOfflineData(user, "K", std::string(64U << 10, 'v'));
    OfflineDataHandler::setOfflineData(user, "K", "\xff");
    EXPECT_EQ(log_.count("is nested too deeply, too large or no UTF-8, not stored"), 3U);
    EXPECT_EQ(TestSandbox::read(dataFile_), before);
    OfflineDataHandler::setOfflineData(user, "K", Value::parse(nested(15, "[", "]")));
    EXPECT_EQ(OfflineDataHandler::getOfflineData(user)->at("K"),
              Value::parse(nested(15, "[", "]")));
}

TEST_F(StoreTest, TouchesNothingOutsideWhenSomethingElseHasItsPlace) {
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    const fs::path outside = sandbox_.root() / "outside";
    TestSandbox::write(outside, "outside");
    fs::create_symlink(outside, dataFile_);
    EXPECT_FALSE(OfflineDataHandler::setOfflineData(user, "K", 1));
    fs::remove(dataFile_);
    fs::remove(sandbox_.support() / "offline-data.lock");
    fs::create_symlink(outside, sandbox_.support() / "offline-data.lock");
    OfflineDataHandler::setOfflineData(user, "K", 1);
    EXPECT_EQ(TestSandbox::read(outside), "outside");
    EXPECT_TRUE(log_.has("no lock on "));
    EXPECT_FALSE(OfflineDataHandler::getOfflineData(user)) << "nothing is changed without it";
}

TEST_F(StoreTest, WaitsForALockFiveSecondsAndThenChangesNothing) {
    ASSERT_TRUE(OfflineDataHandler::ensureDataEncryptionKey());
    OfflineDataHandler::setOfflineData(user, "K", 1);
    const FileDescriptor holder(
        open((sandbox_.support() / "offline-data.lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(holder.get(), LOCK_EX), 0);
    const LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(OfflineDataHandler::setOfflineData(user, "K", 2));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(4900));
    EXPECT_LT(waited, std::chrono::seconds(8));
    EXPECT_EQ(log.count("\n"), 1U) << log.text();
    EXPECT_EQ(OfflineDataHandler::getOfflineData(user), Value({{"K", 1}}));
}

TEST_F(StoreTest, KeepsAsideWhatItCannotReadBeforeItStartsAnew) {
    const test::TestClock clock;
    ASSERT_TRUE(OfflineDataHandler::ensureDataEncryptionKey());
    OfflineDataHandler::setOfflineData(user, "K", 1);
    const std::string oldData = TestSandbox::read(dataFile_);
    const std::string oldKey = TestSandbox::read(keyFile_);
    // The access key has changed: neither file can be read any more.
    setAccessKey("another access key");
    const auto replace = [&] { return OfflineDataHandler::replaceRecord(user, userData, clock); };
    EXPECT_EQ(replace(), OfflineDataHandler::Replaced::done);
    EXPECT_EQ(TestSandbox::read(dataFile_.string() + ".unreadable"), oldData);
    EXPECT_EQ(TestSandbox::read(keyFile_.string() + ".unreadable"), oldKey);
    EXPECT_TRUE(log_.has("and neither can the data under it: a new key is made\n"));
    EXPECT_TRUE(OfflineDataHandler::getOfflineData(user));

    fs::resize_file(dataFile_, (64U << 20) + 1);
    EXPECT_EQ(replace(), OfflineDataHandler::Replaced::done);
    EXPECT_EQ(fs::file_size(dataFile_.string() + ".unreadable"), (64U << 20) + 1);
    EXPECT_TRUE(OfflineDataHandler::getOfflineData(user));
    EXPECT_EQ(log_.count(" cannot be read, it is kept as "), 3U);
}

TEST_F(StoreTest, KeepsTheOldDataWhenTheDiskIsFull) {
    ASSERT_TRUE(OfflineDataHandler::setDataEncryptionKey());
    OfflineDataHandler::setOfflineData(user, "K", 1);
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{.rlim_cur = 16U << 10, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    OfflineDataHandler::setOfflineData(user, "K", std::string(40U << 10, 'v'));
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_TRUE(log_.has("saveToFile::Error writing modified offline JSON data to file.\n"));
    EXPECT_EQ(OfflineDataHandler::getOfflineData(user), Value({{"K", 1}}));
    EXPECT_EQ(std::distance(fs::directory_iterator(sandbox_.support()), fs::directory_iterator()),
              3)
        << "data, key and lock, no temporary file";
}

}  // namespace
}  // namespace quorl
