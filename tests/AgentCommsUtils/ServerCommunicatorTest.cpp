#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "PropertyList.h"
#include "ServerCommunicator.h"
#include "TestClock.h"
#include "TestServer.h"

#include <sys/resource.h>

namespace quorl::test {
namespace {

const std::string accessKey = "00112233445566778899aabbccddeeff0123456789abcdef0123456789abcdef";
const std::string getAccessKeyPath = "/RestAPI/logonagent/getAccessKey";
const std::string updateStatusPath = "/RestAPI/logonagent/updateStatus";

class ServerCommunicatorTest : public testing::Test {
  protected:
    ServerCommunicatorTest() { trustTestAuthority(); }

    static std::vector<std::string> serverSwitches(std::vector<std::string> more = {}) {
        more.insert(more.end(),
                    {"--installation-key", "one-time key", "--agent-id", "agent 7", "--access-key",
                     accessKey, "--value-key", convertDataBytesToHex(aesKey)});
        return more;
    }
    /// Writes the file that an installer leaves; entries replace or add to it.
    void configure(int port, const Value& entries = Value::object()) const {
        Value config = {{"SERVERNAME", "localhost"},
                        {"PORTNUMBER", std::to_string(port)},
                        {"VERSION", "1.2"},
                        {"INSTALLATION_KEY", *encryptText("one-time key", aesKey, iv)},
                        {"UNKNOWN", "kept"}};
        config.update(entries);
        ASSERT_TRUE(writePropertyListFile(configFile, config).has_value());
    }
    Value stored() const { return readPropertyListFile(configFile).value(); }
    std::string log() const { return TestSandbox::read(sandbox.support() / "VantorixClient.log"); }
    static bool registers() { return ServerCommunicator(systemClock()).isAccessKeyExists(); }
    /// In a process of its own, as an earlier run of the agent would.
    static bool registersElsewhere() { return endsWell(inChild(registers)); }

    TestSandbox sandbox;
    std::string configFile = sandbox.support() / "config.plist";
};

TEST_F(ServerCommunicatorTest, ASignatureIsTheOneThatOpenSSLComputes) {
    configure(1, {{"AGENT_ID", "42"}, {"ACCESS_KEY", *encryptText(accessKey, aesKey, iv)}});
    // printf '%s' "$date$method$path" | openssl dgst -sha256 -hmac "$key" -r | cut -c1-64 |
    //     tr -d '\n' | base64 -w0
    const TestClock clock(std::chrono::seconds(1794702491));
    const ServerCommunicator communicator(clock);
    const std::string key = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
    EXPECT_EQ(communicator.getAuthRequestHeaders(key, "42", updateStatusPath, "POST"),
              Value({{"Content-Type", "application/x-www-form-urlencoded"},
                     {"idm-date", "Sun, 15 Nov 2026 00:28:11 +0000"},
                     {"Authorization",
                      "Basic 42:NjU5NWQzNjFiNTA2N2RlZjE5OTA1OTZkZjQ5MmE3M2ZiNzM5MDNlY2MyYjdmNTk0"
                      "MjhkZjMyOTc5YTU0NzQzYQ=="}}));
    EXPECT_EQ(communicator.getAuthRequestHeaders("k\xc3\xa9y", "42", updateStatusPath, "POST"),
              std::nullopt);
    EXPECT_NE(log().find("getAuthRequestHeaders: Failed to generate authHeader hash\n"),
              std::string::npos);
}

TEST_F(ServerCommunicatorTest, AnAgentRegistersOnceAndIsKnownFromThenOn) {
    const TestServer server("server", serverSwitches());
    configure(server.port());
    ASSERT_TRUE(registersElsewhere()) << log();

    ASSERT_EQ(server.requests().size(), 1u);
    const std::string form = server.requests()[0]["body"];
    EXPECT_TRUE(form.starts_with("machineName=") && form.ends_with("&version=1.2&osType=Mac"))
        << form;
    EXPECT_NE(form.find("&domainName="), std::string::npos);
    const Value config = stored();
    EXPECT_EQ(config["AGENT_ID"], "agent 7");
    EXPECT_EQ(config["INSTALLATION_KEY"], "");
    EXPECT_EQ(config["UNKNOWN"], "kept");
    EXPECT_NE(config["ACCESS_KEY"], accessKey);
    EXPECT_EQ(decrypt(config["ACCESS_KEY"].get<std::string>(), aesKey, iv), accessKey);

    // A new run signs with what the file holds, which the server checks, and asks for no key.
    ServerCommunicator communicator(systemClock());
    EXPECT_TRUE(communicator.updateAgentStatus("uninstall"));
    Value headers = {{"X-Own", "1"}, {"idm-date", "stale"}};
    const auto enrollment = communicator.sendRequestWithAuthHeader(
        "/RestAPI/logonagent/mfa/getOfflineEnrollment", "POST", &headers, "");
    EXPECT_EQ(enrollment, Value({{"ENROLLED_USERS_LIST", {"alice@EXAMPLE"}}}));
    EXPECT_EQ(headers.size(), 4u);
    communicator.sendRequestWithAuthHeader("/nope", "GET", nullptr, "a=1");

    const std::vector<Value> requests = server.requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[1]["path"], updateStatusPath);
    EXPECT_TRUE(
        requests[1]["body"].get<std::string>().starts_with("status=uninstall&machineName="));
    EXPECT_EQ(TestServer::headers(requests[2], "X-Own"), std::vector<std::string>{"1"});
    EXPECT_EQ(requests[3]["target"], "/nope?a=1");
    getProductConfig(configFile)["PORTNUMBER"] = "1";
    EXPECT_FALSE(communicator.updateAgentStatus("install"));
}

TEST_F(ServerCommunicatorTest, AReplyThatIsNotWholeCostsNothing) {
    const std::string reply = sandbox.root() / "reply";
    const TestServer server("server",
                            serverSwitches({"--only", getAccessKeyPath, "--reply-file", reply}));
    configure(server.port());
    const std::string before = TestSandbox::read(configFile);
    const std::string good = *encryptText(accessKey, aesKey, iv);
    const Value whole = {{"agent_access_key", good}, {"agent_id", "7"}};
    const auto withProperty = [&whole](const char* key, const Value& value) {
        Value properties = whole;
        properties[key] = value;
        return Value({{"result", "success"}, {"agent_props", properties}}).dump();
    };
    const Bytes noise(32, 7);
    const std::string replies[] = {
        "{",
        "null",
        "\"success\"",
        Value({{"result", "failure"}, {"agent_props", whole}}).dump(),
        Value({{"result", true}, {"agent_props", whole}}).dump(),
        Value({{"agent_props", whole}}).dump(),
        R"({"result": "success"})",
        R"({"result": "success", "agent_props": ["a"]})",
        R"({"ERROR_MSG": null})",
        withProperty("agent_id", nullptr),
        withProperty("agent_id", 7),
        withProperty("agent_access_key", {{"a", 1}}),
        withProperty("agent_access_key", "not base64"),
        withProperty("agent_access_key", base64Encode(noise)),
        withProperty("agent_access_key", *encryptText("", aesKey, iv)),
        // What could never sign a call.
        withProperty("agent_id", "7\nX-Own: 1"),
        withProperty("agent_id", std::string("7\0", 2)),
        withProperty("agent_id", "\xef\xbf\xbf"),
        withProperty("agent_id", std::string(129, '7')),
        withProperty("agent_id", std::string(900'000, '7')),
        withProperty("agent_access_key", *encryptText("k", aesKey, iv)),
        withProperty("agent_access_key", *encryptText(accessKey + "0", aesKey, iv)),
        withProperty(
            "agent_access_key",
            *encryptText(std::string(32, 'a') + "\xc3\xa9" + std::string(30, 'a'), aesKey, iv)),
    };
    std::size_t tries = 0;
    for (const std::string& text : replies) {
        TestSandbox::write(reply, text);
        EXPECT_FALSE(registers()) << text;
        EXPECT_EQ(TestSandbox::read(configFile), before) << text;
        EXPECT_EQ(server.requests().size(), ++tries);
    }
    EXPECT_NE(log().find("getaccessKey: unable to get agent key  - Invalid response from server\n"),
              std::string::npos);

    // The installation key has survived all that.
    TestSandbox::write(reply, withProperty("agent_id", "7"));
    EXPECT_TRUE(registers());
}

// A full disk, for root too: the file may not grow beyond its size.
TEST_F(ServerCommunicatorTest, AnIdentityThatCannotBeStoredLeavesTheInstallationKey) {
    const TestServer server("server", serverSwitches());
    configure(server.port(), {{"FILL", std::string(200'000, 'x')}});
    const std::string before = TestSandbox::read(configFile);
    EXPECT_TRUE(endsWell(inChild([] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small{.rlim_cur = 150'000, .rlim_max = 150'000};
        setrlimit(RLIMIT_FSIZE, &small);
        return !registers();
    })));
    EXPECT_EQ(TestSandbox::read(configFile), before);
    EXPECT_TRUE(registers());
}

TEST_F(ServerCommunicatorTest, OfAgentsThatRegisterAtOnceOneAsksAndAllHoldItsIdentity) {
    const TestServer server("server", serverSwitches());
    configure(server.port());
    std::vector<pid_t> children;
    for (int i = 0; i < 6; ++i)
        children.push_back(inChild(registers));
    for (const pid_t child : children)
        EXPECT_TRUE(endsWell(child));
    EXPECT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(stored()["AGENT_ID"], "agent 7");
}

TEST_F(ServerCommunicatorTest, ARegistrationThatIsKilledLeavesAllOrNothing) {
    const TestServer server("server", serverSwitches());
    const auto inMicroseconds = [](auto span) {
        return std::chrono::duration_cast<std::chrono::microseconds>(span).count();
    };
    configure(server.port());
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(registersElsewhere());
    const auto whole = inMicroseconds(std::chrono::steady_clock::now() - start);

    constexpr int kills = 60;
    int registered = 0;
    for (int i = 0; i < kills; ++i) {
        configure(server.port());
        const pid_t child = inChild(registers);
        // From early in it to well past its end, however fast the machine is just now.
        usleep(static_cast<useconds_t>(whole * (5 + i) / 25));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const Value left = stored();
        const bool holdsIdentity = left.contains("AGENT_ID");
        registered += holdsIdentity;
        EXPECT_EQ(left.contains("ACCESS_KEY"), holdsIdentity) << left;
        EXPECT_EQ(left["INSTALLATION_KEY"] == "", holdsIdentity) << left;
        EXPECT_EQ(left["UNKNOWN"], "kept");
        // The next start goes on from there, and clears away what the killed one left.
        ASSERT_TRUE(registersElsewhere());
        for (const auto& entry : std::filesystem::directory_iterator(sandbox.support()))
            EXPECT_EQ(entry.path().string().find(".part-"), std::string::npos) << entry.path();
    }
    EXPECT_GT(registered, 0);
    EXPECT_LT(registered, kills);
}

TEST_F(ServerCommunicatorTest, TheContextPathIsSentAndNotSigned) {
    const TestServer server("server", serverSwitches({"--context-path", "/sso"}));
    configure(server.port(), {{"CONTEXT_PATH", "/sso"}});
    ServerCommunicator communicator(systemClock());
    EXPECT_TRUE(communicator.isAccessKeyExists());
    EXPECT_EQ(server.requests().at(0)["target"], "/sso" + getAccessKeyPath);
}

TEST_F(ServerCommunicatorTest, OnlyTrueRestrictsTheCertificatesOfTheServersAgentApi) {
    const TestServer server("self-signed", serverSwitches());
    configure(server.port(), {{"RESTRICT_BADCERT", "True"}});
    ServerCommunicator communicator(systemClock());
    EXPECT_FALSE(communicator.isAccessKeyExists());
    getProductConfig(configFile)["RESTRICT_BADCERT"] = "";
    EXPECT_TRUE(communicator.getAccessKey());
}

}  // namespace
}  // namespace quorl::test
