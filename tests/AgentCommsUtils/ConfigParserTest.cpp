#include "CommonUtils.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "ServerAddress.h"
#include "Subprocess.h"
#include "ValueKey.h"

#include <sys/stat.h>

#include <array>

namespace quorl {
namespace {

using test::LogCapture;
using test::opensslEncrypted;
using test::outputOf;
using test::TestSandbox;
namespace fs = std::filesystem;

class ConfigParserTest : public testing::Test {
  protected:
    // Written and read by an independent program.
    void writePlist(const std::string& python, const std::string& format = "XML") const {
        outputOf({"python3", "-c",
                  "import plistlib,sys;plistlib.dump(" + python +
                      ",open(sys.argv[1],'wb'),fmt=plistlib.FMT_" + format + ")",
                  path_});
    }
    Value readPlist() const {
        return Value::parse(outputOf(
            {"python3", "-c",
             "import plistlib,sys,json;print(json.dumps(plistlib.load(open(sys.argv[1],'rb'),"
             "fmt=plistlib.FMT_XML)))",
             path_}));
    }
    // The dictionary is loaded anew once it is empty.
    Value& reload() const {
        getProductConfig(path_).clear();
        return getProductConfig(path_);
    }

    const TestSandbox sandbox_;
    const std::string path_ = sandbox_.support() / "config.plist";
    const LogCapture log_;
};

TEST_F(ConfigParserTest, GivesTheDefaultsWithoutAFile) {
    EXPECT_TRUE(fs::equivalent(fs::path(getConfigFilePath()).parent_path(), sandbox_.support()));
    EXPECT_EQ(fs::path(getConfigFilePath()).filename(), "config.plist");
    const Value& config = getProductConfig(path_);
    EXPECT_TRUE(isTrue(config, "RESTRICT_BADCERT"));
    EXPECT_FALSE(isTrue(config, "BYPASS_MFA_SERVERUNREACH"));
    EXPECT_EQ(productConfigState(), ConfigState::missing);
    EXPECT_TRUE(log_.has("getProductConfig: init failed : Config file : " + path_ + " not found"));
    addConfiguration("K", "v", path_);
    updatePostConfigData({{"K", "v"}}, path_);
    EXPECT_FALSE(fs::exists(path_)) << "nothing is changed without a file";
}

TEST_F(ConfigParserTest, TakesTheTextsOfKnownKeysFromXmlAndBinaryFiles) {
    const std::string content =
        "{'SERVERNAME':'höst','PORTNUMBER':8443,'LOGIN_MFA':True,'RESTRICT_BADCERT':'False',"
        "'UNKNOWN':'x','INSTALLATION_KEY':''}";
    for (const std::string format : {"XML", "BINARY"}) {
        writePlist(content, format);
        const Value& config = reload();
        EXPECT_FALSE(config.contains("UNKNOWN"));
        EXPECT_EQ(configText(config, "SERVERNAME"), "höst") << format;
        EXPECT_EQ(configText(config, "PORTNUMBER"), "");
        EXPECT_EQ(configText(config, "LOGIN_MFA"), "false");
        EXPECT_EQ(configText(config, "INSTALLATION_KEY"), "");
        EXPECT_TRUE(isFalse(config, "RESTRICT_BADCERT"));
        EXPECT_FALSE(isTrue(config, "RESTRICT_BADCERT"));
    }
    EXPECT_EQ(log_.text(), "");
}

TEST_F(ConfigParserTest, DecryptsTheTwoKeysAndNeverLogsThem) {
    const std::string right = convertDataBytesToHex(aesKey);
    writePlist("{'ACCESS_KEY':'" + opensslEncrypted("the access key", right) +
               "','INSTALLATION_KEY':'" + opensslEncrypted("once", right) + "'}");
    EXPECT_EQ(configText(reload(), "ACCESS_KEY"), "the access key");
    EXPECT_EQ(configText(reload(), "INSTALLATION_KEY"), "once");
    EXPECT_EQ(productConfigState(), ConfigState::whole);
    EXPECT_EQ(log_.text(), "");

    const std::string stored = opensslEncrypted("the access key", std::string(64, '0'));
    writePlist("{'ACCESS_KEY':'" + stored + "','INSTALLATION_KEY':'not base64'}");
    const Value& config = reload();
    EXPECT_EQ(configText(config, "ACCESS_KEY"), "");
    EXPECT_EQ(configText(config, "INSTALLATION_KEY"), "");
    EXPECT_EQ(productConfigState(), ConfigState::damaged);
    EXPECT_EQ(log_.count("could not be decrypted"), 2U);
    EXPECT_TRUE(log_.has("ACCESS_KEY") && log_.has("INSTALLATION_KEY"));
    EXPECT_FALSE(log_.has(stored) || log_.has("not base64"));
}

TEST_F(ConfigParserTest, TheValueKeyOfTheSupportDirectoryGoesBeforeTheBuiltInOne) {
    const fs::path file = sandbox_.support() / "value.key";
    const std::string own = "00112233445566778899AABBCCDDEEFF00112233445566778899aabbccddeeff";
    writePlist("{'ACCESS_KEY':'" + opensslEncrypted("own", own) + "'}");
    EXPECT_TRUE(isDevelopmentValueKey());
    for (const std::string& content : {own, own + "\n", own + "\r\n"}) {
        TestSandbox::write(file, content);
        EXPECT_EQ(configText(reload(), "ACCESS_KEY"), "own");
        EXPECT_EQ(productConfigState(), ConfigState::whole);
        EXPECT_FALSE(isDevelopmentValueKey());
    }
    EXPECT_EQ(log_.text(), "");

    // Never the built-in key instead: not even where that one would decrypt what is stored.
    writePlist("{'ACCESS_KEY':'" + opensslEncrypted("built in", convertDataBytesToHex(aesKey)) +
               "'}");
    for (const std::string& content : {std::string(), own.substr(1), own + "0", own.substr(1) + "g",
                                       own + "\n" + own, std::string(2000, '0')}) {
        TestSandbox::write(file, content);
        EXPECT_EQ(configText(reload(), "ACCESS_KEY"), "") << content;
        EXPECT_EQ(productConfigState(), ConfigState::damaged) << content;
    }
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_FALSE(valueKey());
    EXPECT_EQ(log_.count("valueKey : " + file.parent_path().parent_path().string()), 7U);
    EXPECT_FALSE(log_.has(own.substr(1)));
}

TEST_F(ConfigParserTest, GivesTheDefaultsForADamagedFileAndNeverOverwritesIt) {
    writePlist("{'SERVERNAME':'s'}", "BINARY");
    const std::string binary = TestSandbox::read(path_);
    writePlist("{'SERVERNAME':'s'}");
    const std::string xml = TestSandbox::read(path_);
    const std::vector<std::pair<const char*, std::string>> damaged = {
        {"empty", ""},
        {"noise", std::string("\x00\xff\x17noise\x80", 9)},
        {"cut XML", xml.substr(0, xml.size() - 20)},
        {"cut binary", binary.substr(0, binary.size() - 9)},
        {"array", "<plist version=\"1.0\"><array><string>SERVERNAME</string></array></plist>"},
        {"huge", xml + std::string(5U << 20, ' ')},
    };
    reload();
    for (const auto& [what, content] : damaged) {
        TestSandbox::write(path_, content);
        const LogCapture log;
        EXPECT_EQ(configText(reload(), "SERVERNAME"), "") << what;
        EXPECT_EQ(log.count("could not be read: "), 1U) << what;
        EXPECT_EQ(productConfigState(), ConfigState::damaged) << what;
        addConfiguration("SERVERNAME", "new", path_);
        removeConfiguration("SERVERNAME", path_);
        EXPECT_EQ(log.count("could not be read and stays as it is: "), 2U) << what;
        EXPECT_EQ(TestSandbox::read(path_), content) << what;
    }
    fs::remove(path_);
    fs::create_directory(path_);
    EXPECT_TRUE(isTrue(reload(), "RESTRICT_BADCERT"));
    EXPECT_TRUE(log_.has("could not be read: "));
}

TEST_F(ConfigParserTest, ChangesSingleKeysOfTheFileAndNothingElse) {
    writePlist(
        "{'SERVERNAME':'s','OTHER':5,'VERSION':__import__('datetime').datetime(2026,1,2),'"
        "INSTALLATION_KEY':'k'}");
    chmod(path_.c_str(), 0640);
    const Value before = reload();
    EXPECT_EQ(configText(before, "VERSION"), "") << "a date is no text";
    TestSandbox::write(path_ + ".part-killed", "half");
    addConfiguration("ACCESS_KEY", "<cipher> & \"text\"", path_);
    removeConfiguration("INSTALLATION_KEY", path_);
    EXPECT_FALSE(fs::exists(path_ + ".part-killed"));
    removeConfiguration("VERSION", path_);
    updatePostConfigData({{"PRODTITLE", "Tïtle"}, {"NUMBER", 1}, {"DICT", Value::object()}}, path_);
    EXPECT_EQ(readPlist(), Value({{"SERVERNAME", "s"},
                                  {"OTHER", 5},
                                  {"ACCESS_KEY", "<cipher> & \"text\""},
                                  {"PRODTITLE", "Tïtle"}}));
    EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0600));
    EXPECT_EQ(log_.count("was open to others and is written back as 0600"), 1U);
    EXPECT_EQ(getProductConfig(path_), before) << "what the process sees stays as it was loaded";
}

TEST_F(ConfigParserTest, AServerIsAHostAndAPortAndCannotBeTurnedIntoAnother) {
    const auto urlOf = [](const std::string& server, const std::string& port,
                          const std::string& context) -> std::string {
        const LogCapture log;
        const auto address = serverAddress(
            {{"SERVERNAME", server}, {"PORTNUMBER", port}, {"CONTEXT_PATH", context}});
        EXPECT_EQ(log.count("serverAddress : "), address ? 0U : 1U) << server << port << context;
        return address ? encodeBehindServer(constructServerURL(address->host, address->port,
                                                               address->contextPath, "/a b[c]"))
                       : "refused";
    };
    for (const auto& [server, port, context, url] : std::vector<std::array<const char*, 4>>{
             {"server1", "8443", "/sso", "https://server1:8443/sso"},
             {"Server-1.example.org.", "0443", "", "https://Server-1.example.org.:443"},
             {"192.0.2.1", "1", "", "https://192.0.2.1:1"},
             {"::1", "65535", "", "https://[::1]:65535"},
             {"[2001:db8::1]", "443", "", "https://[2001:db8::1]:443"},
             {"m\xc3\xbcnchen.example", "443", "", "https://xn--mnchen-3ya.example:443"}})
        EXPECT_EQ(urlOf(server, port, context), std::string(url) + "/a%20b%5Bc%5D");
    for (const char* server : {"localhost/", "localhost?", "a@evil", "a b", "a\n", "a..b", "[::1",
                               "[fe80::1%eth0]", "server:1", "m\u00fcnchen\uff0fevil"})
        EXPECT_EQ(urlOf(server, "443", ""), "refused") << server;
    for (const char* port : {"443@evil:1", "0", "65536", "-1", " 443"})
        EXPECT_EQ(urlOf("server", port, ""), "refused") << port;
    for (const char* context : {"@evil", "sso", "/sso?x"})
        EXPECT_EQ(urlOf("server", "443", context), "refused") << context;
}

}  // namespace
}  // namespace quorl
