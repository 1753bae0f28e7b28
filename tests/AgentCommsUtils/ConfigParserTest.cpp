#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "Subprocess.h"

#include <sys/resource.h>
#include <sys/stat.h>

namespace quorl {
namespace {

using test::LogCapture;
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
    const Value expected = Value::parse(R"({
        "SERVERNAME": "", "PORTNUMBER": "", "CONTEXT_PATH": "", "LOGIN_MFA": "false",
        "PREAUTH_CHECK_REQUIRED": "false", "BYPASS_MFA_SERVERUNREACH": "false",
        "RESTRICT_BADCERT": "true", "SERVER_UNREACH_MSG":
        "Could not connect to the TFA Provider. Please contact the administrator.",
        "PRODTITLE": "", "IMAGEPATH": "reset_icon.png",
        "BUTTONTEXT": "Reset Password / Unlock Account", "SHOW_RP_UA_LINK": "true",
        "AGENT_ID": "", "ACCESS_KEY": "", "INSTALLATION_KEY": "", "VERSION": "",
        "IS_MFA_ENFORCED": "", "OFFLINE_MFA": "false", "OFFLINE_WEB_LOGO_NAME": "",
        "LOCALE_ID": "",
        "MAC_AGENT_HOST_EXCLUDE": "okta,auth0,duosecurity.com,about:blank,javascript"})");
    EXPECT_EQ(getProductConfig(path_), expected);
    EXPECT_TRUE(log_.has("getProductConfig: init failed : Config file : " + path_ + " not found"));
}

TEST_F(ConfigParserTest, TakesTheTextsOfKnownKeysFromXmlAndBinaryFiles) {
    const std::string content =
        "{'SERVERNAME':'höst','PORTNUMBER':8443,'LOGIN_MFA':True,'RESTRICT_BADCERT':'False',"
        "'UNKNOWN':'x','INSTALLATION_KEY':''}";
    for (const std::string format : {"XML", "BINARY"}) {
        writePlist(content, format);
        const Value& config = reload();
        EXPECT_EQ(config.size(), 21U);
        EXPECT_EQ(configText(config, "SERVERNAME"), "höst") << format;
        EXPECT_EQ(configText(config, "PORTNUMBER"), "");
        EXPECT_EQ(configText(config, "LOGIN_MFA"), "false");
        EXPECT_EQ(configText(config, "INSTALLATION_KEY"), "");
        EXPECT_TRUE(isFalse(config, "RESTRICT_BADCERT"));
        EXPECT_FALSE(isTrue(config, "RESTRICT_BADCERT"));
    }
    EXPECT_EQ(log_.text(), "");
}

TEST_F(ConfigParserTest, KeepsTheFirstDictionaryForTheProcess) {
    writePlist("{'SERVERNAME':'first'}");
    getProductConfig(path_)["AGENT_ID"] = "set by a caller";
    writePlist("{'SERVERNAME':'second'}");
    EXPECT_EQ(configText(getProductConfig("/elsewhere"), "SERVERNAME"), "first");
    EXPECT_EQ(configText(getProductConfig(path_), "AGENT_ID"), "set by a caller");
}

TEST_F(ConfigParserTest, DecryptsTheTwoKeysAndNeverLogsThem) {
    const auto encrypted = [&](const std::string& plain, const std::string& key) {
        TestSandbox::write(sandbox_.root() / "plain", plain);
        return outputOf({"openssl", "enc", "-aes-256-cbc", "-a", "-A", "-K", key, "-iv",
                         convertDataBytesToHex(iv), "-in", sandbox_.root() / "plain"});
    };
    const std::string right = convertDataBytesToHex(aesKey);
    writePlist("{'ACCESS_KEY':'" + encrypted("the access key", right) + "','INSTALLATION_KEY':'" +
               encrypted("once", right) + "'}");
    EXPECT_EQ(configText(reload(), "ACCESS_KEY"), "the access key");
    EXPECT_EQ(configText(reload(), "INSTALLATION_KEY"), "once");
    EXPECT_EQ(log_.text(), "");

    const std::string stored = encrypted("the access key", std::string(64, '0'));
    writePlist("{'ACCESS_KEY':'" + stored + "','INSTALLATION_KEY':'not base64'}");
    const Value& config = reload();
    EXPECT_EQ(configText(config, "ACCESS_KEY"), "");
    EXPECT_EQ(configText(config, "INSTALLATION_KEY"), "");
    EXPECT_EQ(log_.count("could not be decrypted"), 2U);
    EXPECT_TRUE(log_.has("ACCESS_KEY") && log_.has("INSTALLATION_KEY"));
    EXPECT_FALSE(log_.has(stored) || log_.has("not base64"));
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
        addConfiguration("SERVERNAME", "new", path_);
        removeConfiguration("SERVERNAME", path_);
        EXPECT_EQ(log.count("could not be read and stays as it is: "), 2U) << what;
        EXPECT_EQ(TestSandbox::read(path_), content) << what;
    }
    fs::remove(path_);
    fs::create_directory(path_);
    EXPECT_EQ(reload().size(), 21U);
    EXPECT_TRUE(log_.has("could not be read: "));
}

TEST_F(ConfigParserTest, ChangesSingleKeysOfTheFileAndNothingElse) {
    writePlist("{'SERVERNAME':'s','OTHER':5,'INSTALLATION_KEY':'k'}");
    chmod(path_.c_str(), 0640);
    const Value before = reload();
    addConfiguration("ACCESS_KEY", "<cipher> & \"text\"", path_);
    removeConfiguration("INSTALLATION_KEY", path_);
    updatePostConfigData({{"PRODTITLE", "Tïtle"}, {"NUMBER", 1}, {"DICT", Value::object()}}, path_);
    EXPECT_EQ(readPlist(), Value({{"SERVERNAME", "s"},
                                  {"OTHER", 5},
                                  {"ACCESS_KEY", "<cipher> & \"text\""},
                                  {"PRODTITLE", "Tïtle"}}));
    EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0640));
    EXPECT_EQ(getProductConfig(path_), before) << "what the process sees stays as it was loaded";
}

TEST_F(ConfigParserTest, ChangesNothingWithoutAFileOrWithoutData) {
    addConfiguration("K", "v", path_);
    removeConfiguration("K", path_);
    updatePostConfigData({{"K", "v"}}, path_);
    updatePostConfigData(Value::object(), path_);
    updatePostConfigData(nullptr, path_);
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_TRUE(log_.has("addConfiguration :: Config file : " + path_ + " not found\n"));
    EXPECT_TRUE(log_.has("removeConfiguration :: Config file : " + path_ + " not found\n"));
    EXPECT_TRUE(log_.has("updatePostConfigData :: Config file : " + path_ + " not found\n"));
    EXPECT_EQ(log_.count("updatePostConfigData :: Invalid config data obtained from server\n"), 2U);
}

TEST_F(ConfigParserTest, KeepsTheOldFileWhenAWriteFailsHalfWay) {
    writePlist("{'SERVERNAME':'s'}");
    const std::string before = TestSandbox::read(path_);
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{.rlim_cur = 64U << 10, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    addConfiguration("K", std::string(100U << 10, 'v'), path_);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_TRUE(log_.has("addConfiguration :: Config file : " + path_ + " could not be written: "));
    EXPECT_EQ(TestSandbox::read(path_), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(sandbox_.support()), fs::directory_iterator()),
              1)
        << "no temporary file is left";
}

}  // namespace
}  // namespace quorl
