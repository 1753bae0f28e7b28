#include "CryptoUtils.h"
#include "OfflinePageScripts.h"
#include "PropertyList.h"
#include "TestSandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <map>

namespace quorl::test {
namespace {

using ::testing::HasSubstr;

std::string pageFile(const char* name) {
    return TestSandbox::read(std::string(QUORL_SOURCE_DIR "/resources/offlineMFA/") + name);
}

std::string sha256Source(const std::string& inlined) {
    Bytes digest(SHA256_DIGEST_LENGTH);
    SHA256(asBytes(inlined).data(), inlined.size(), digest.data());
    return "'sha256-" + base64Encode(digest) + "'";
}

std::string attribute(const std::string& markup, const std::string& name) {
    const auto from = markup.find(name + "=\"") + name.size() + 2;
    return markup.substr(from, markup.find('"', from) - from);
}

std::string placeholder(const std::string& text) {
    const auto from = text.find('%');
    return from == text.npos ? "" : text.substr(from, text.rfind('%') + 1 - from);
}

TEST(OfflinePage, policyAllowsTheRowsInlineAttributesAndNoOther) {
    const std::string page = pageFile("OfflineMFA.htm");
    const std::string row = chooseRow("App", 3, RowPlace::first);
    EXPECT_THAT(page, HasSubstr("default-src 'none'; script-src 'self' 'unsafe-hashes' " +
                                sha256Source(attribute(row, "onclick")) +
                                "; style-src 'self' 'unsafe-hashes' " +
                                sha256Source(attribute(row, "style")) + ";"));
    EXPECT_EQ(page.find("unsafe-inline"), page.npos);
    EXPECT_EQ(page.find("unsafe-eval"), page.npos);
}

TEST(StringTables, everyLanguageHasEveryTextAndItsPlaceholders) {
    const std::map<std::string, std::string> placeholders = {
        {"IDS_MFA_OFFLINE_HTML_T2", "%TYPE%"},
        {"IDS_MFA_OFFLINE_HTML_HARDWARE_TOKEN_DESC", "%SERIAL_NUMBER%"},
        {"IDS_KESH_PROMPT_CODE", "%NAME%"},
        {"IDS_KESH_LOCKED", "%MINUTES%"}};
    const auto table = [](const std::string& language) {
        return readPropertyListFile(QUORL_SOURCE_DIR "/resources/" + language +
                                    ".lproj/Localizable.strings")
            .value_or(Value::object());
    };
    const Value english = table("en");
    ASSERT_GE(english.size(), 20U);
    for (const char* language : {"en", "de", "fr", "es", "it", "pt", "nl", "pl", "sv", "ja", "ko",
                                 "zh-Hans", "ar", "he"}) {
        const Value texts = table(language);
        EXPECT_EQ(texts.size(), english.size()) << language;
        for (const auto& [key, unused] : english.items()) {
            const std::string text = stringValue(texts, key).value_or("");
            EXPECT_FALSE(text.empty()) << language << " " << key;
            // The texts go between quotes of scripts as they stand.
            EXPECT_EQ(text.find_first_of("\"'\\<\n"), text.npos) << language << " " << key;
            const auto expected = placeholders.find(key);
            EXPECT_EQ(placeholder(text), expected == placeholders.end() ? "" : expected->second)
                << language << " " << key;
        }
    }
}

}  // namespace
}  // namespace quorl::test
