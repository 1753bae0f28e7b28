#include "CommonUtils.h"
#include "Localization.h"
#include "Subprocess.h"
#include "TestClock.h"

#include <time.h>

#include <array>

namespace quorl {
namespace {

using test::TestSandbox;
using namespace std::chrono_literals;

TEST(UtcDate, IsEnglishAndUniversalWhateverTheMachine) {
    setenv("TZ", "America/New_York", 1);
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    tzset();
    setlocale(LC_ALL, "");
    for (const auto& [instant, text] :
         std::vector<std::pair<std::chrono::milliseconds, std::string>>{
             {1794702491s, "Sun, 15 Nov 2026 00:28:11 +0000"},
             {951868799999ms, "Tue, 29 Feb 2000 23:59:59 +0000"},
             {0ms, "Thu, 01 Jan 1970 00:00:00 +0000"},
             {-1ms, "Wed, 31 Dec 1969 23:59:59 +0000"}})
        EXPECT_EQ(getCurrentUTCDate(test::TestClock(instant)), text);
    EXPECT_EQ(getCurrentTimeInMillis(test::TestClock(951868799999ms)), 951868799999);
}

TEST(ResponseValue, IsFoundAsAPlainSubstring) {
    const std::string response = "agent_id= \r\n\t 1|2 ||id=6||last=";
    for (const auto& [key, value] :
         {std::pair("id", "1|2 "), {"id=6", ""}, {"last", ""}, {"none", ""}})
        EXPECT_EQ(parseValueFromResponse(key, response), value) << key;
    EXPECT_EQ(parseValueFromResponse("a", std::nullopt), std::nullopt);
}

TEST(UrlEncode, LeavesLettersAndDigitsOfEveryScript) {
    for (const auto& [text, encoded] : std::vector<std::pair<std::string, std::string>>{
             {"a b&c/d", "a%20b%26c%2Fd"},
             {"-._~AZaz09", "-._~AZaz09"},
             {"Grüße 日本語", "Grüße%20日本語"},
             {"e\u0301\u0665\u00bd\u2167", "e\u0301\u0665\u00bd\u2167"},  // mark and numbers
             {"\u20ac\u00ad\U0001f600", "%E2%82%AC%C2%AD%F0%9F%98%80"},
             {"a\xff\xe3\x81z\xc0\xaf", "a%FF%E3%81z%C0%AF"},  // no UTF-8: byte for byte
             {std::string("\0\n%", 3), "%00%0A%25"}})
        EXPECT_EQ(urlEncode(text), encoded);
}

TEST(QueryEncode, AgreesWithAnIndependentEncoder) {
    std::string text;
    for (char c = 1; c > 0 && c < 127; ++c)
        text += c;
    text += "\x7fäß€😀%41";
    const std::string script =
        "import sys,urllib.parse;"
        "print(urllib.parse.quote(sys.argv[1],safe=\"!$&'()*+,-./:;=?@_~\"),end='')";
    EXPECT_EQ(encodeURLQuery(text), test::outputOf({"python3", "-c", script, text}));
    EXPECT_EQ(encodeURLQuery("\xff"), "%FF");
}

TEST(LocalizedText, FallsBackFromTheNamedLanguageToTheSystemsToEnglish) {
    const TestSandbox sandbox;
    const auto table = [&](const std::string& language, const std::string& entries) {
        TestSandbox::write(sandbox.root() / (language + ".lproj") / "Localizable.strings",
                           "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>");
    };
    table("en", "<key>A</key><string>english</string><key>B</key><string>only english</string>");
    table("fr", "<key>A</key><string>français</string><key>B</key><string></string>");
    table("de", "<key>A</key><string>deutsch</string>");
    table("zh-Hans", "<key>A</key><string>中文</string>");
    const Resources resources(sandbox.root());
    unsetenv("LC_ALL");
    unsetenv("LC_MESSAGES");
    setenv("LANG", "fr_FR.UTF-8", 1);
    for (const auto& [key, locale, text] :
         std::vector<std::array<const char*, 3>>{{"A", "de", "deutsch"},
                                                 {"A", "de_CH.UTF-8@x", "deutsch"},
                                                 {"A", "zh-CN", "中文"},
                                                 {"A", "zh-TW", "français"},  // another script
                                                 {"B", "de", "only english"},
                                                 {"A", "", "français"},
                                                 {"A", "../en", "français"},
                                                 {"B", "", "only english"},
                                                 {"C", "", "C"}})
        EXPECT_EQ(getLocalizedString(key, locale, resources), text) << key << locale;
    setenv("LC_ALL", "de", 1);
    EXPECT_EQ(getNSLocalizedString("A", resources), "deutsch");
    setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_EQ(getNSLocalizedString("A", resources), "english");
}

}  // namespace
}  // namespace quorl
