#include "Log.h"
#include "Redaction.h"
#include "TestSandbox.h"
#include "Utf8.h"
#include "Value.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

TEST(ValueDescription, NoTextCanForgeALogLineOrLeaveItsQuotes) {
    const Value value = {{"a\nb", "x\"; y = \"z\r\n2026-01-01 forged"}};
    const std::string text = description(value).text;
    EXPECT_EQ(text, "{\n    \"a\\nb\" = \"x\\\"; y = \\\"z\\r\\n2026-01-01 forged\";\n}");

    // Whatever some viewer takes for the end of a line: U+2028, U+2029, U+0085, its byte in
    // Latin 1.
    EXPECT_EQ(escapeControl("a\xe2\x80\xa8"
                            "b\xe2\x80\xa9"
                            "c\xc2\x85"
                            "d\x85 \xc3\xa9\xf0\x9f\x94\x91"),
              "a\\U2028b\\U2029c\\U0085d\\x85 \xc3\xa9\xf0\x9f\x94\x91");

    test::LogCapture log;
    logLine("method - {}", std::string("a\nb\x1b[2J"));
    logLine("method - {}", std::optional<std::string>());
    EXPECT_TRUE(log.has("method - a\\nb\\U001b[2J\n"));
    EXPECT_TRUE(log.has("method - (null)\n"));
    EXPECT_EQ(log.count("\n"), 2U);
}

TEST(ValueDescription, EndsAfterFourKibibytes) {
    Value nested = std::string(2U << 20, 'x');
    for (int i = 0; i < 60; ++i)
        nested = Value{{"k", nested}};
    Value umlauts = Value::array();
    for (int i = 0; i < 5000; ++i)
        umlauts.push_back("\xc3\xa4");
    const Value empties(50'000, Value::object());
    for (const Value& value : {nested, umlauts, empties}) {
        const std::string text = description(value).text;
        EXPECT_GT(text.size(), 4000U);
        EXPECT_LT(text.size(), 4110U);
        EXPECT_TRUE(isUtf8(text));
        EXPECT_TRUE(text.ends_with("\xe2\x80\xa6"));
    }
}

TEST(Redaction, SecretsAreShownAsTheirLengthAndAddressesWithoutTheirQuery) {
    const Value request = {{"USER_NAME", "ada"},
                           {"POST_DATA", "password=secret"},
                           {"REQUEST_HEADERS", {{"Authorization", "secret"}}},
                           {"KEY", Value::binary({1, 2, 3})},
                           {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", nullptr}};
    EXPECT_EQ(
        redactedDescription(request).text,
        "{\n    KEY = \"<3 bytes>\";\n    OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN = \"(null)\";\n"
        "    POST_DATA = \"<15 bytes>\";\n    REQUEST_HEADERS = \"<1 entries>\";\n"
        "    USER_NAME = ada;\n}");
    EXPECT_EQ(redactedAddress("https://h/p?code=secret#t"), "https://h/p?…");
    EXPECT_EQ(redactedAddress("https://h/p#token"), "https://h/p?…");
    EXPECT_EQ(redactedAddress("https://h/p"), "https://h/p");
}

}  // namespace
}  // namespace quorl
