#include "Log.h"
#include "TestSandbox.h"
#include "Value.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

TEST(ValueDescription, ShowsDictionariesAsAPropertyListAndQuotesWhatIsNoBareWord) {
    const Value value = {
        {"USER_NAME", "ada"}, {"LIST", {1, true, "a b"}}, {"NESTED", {{"k", nullptr}}}};
    EXPECT_EQ(description(value).text,
              "{\n    LIST = (\n        1,\n        1,\n        \"a b\"\n    );\n"
              "    NESTED = {\n        k = (null);\n    };\n    USER_NAME = ada;\n}");
    EXPECT_EQ(description(Value()).text, "(null)");
}

TEST(ValueDescription, NoTextCanForgeALogLineOrLeaveItsQuotes) {
    const Value value = {{"a\nb", "x\"; y = \"z\r\n2026-01-01 forged"}};
    const std::string text = description(value).text;
    EXPECT_EQ(text, "{\n    \"a\\nb\" = \"x\\\"; y = \\\"z\\r\\n2026-01-01 forged\";\n}");

    test::LogCapture log;
    logLine("method - {}", std::string("a\nb\x1b[2J"));
    logLine("method - {}", std::optional<std::string>());
    EXPECT_TRUE(log.has("method - a\\nb\\U001b[2J\n"));
    EXPECT_TRUE(log.has("method - (null)\n"));
    EXPECT_EQ(log.count("\n"), 2U);
}

TEST(IntegerValue, HoldsEveryKindOfNumberWithin64Bits) {
    const Value value = Value::parse(
        R"({"i": -7, "u": 18446744073709551615, "f": 2.9, "n": -2.9, "big": 1e300, "b": true,
            "t": "12", "z": null})");
    EXPECT_EQ(integerValue(value, "i"), -7);
    EXPECT_EQ(integerValue(value, "u"), INT64_MAX);
    EXPECT_EQ(integerValue(value, "f"), 2);
    EXPECT_EQ(integerValue(value, "n"), -2);
    EXPECT_EQ(integerValue(value, "big"), INT64_MAX);
    EXPECT_EQ(integerValue(value, "b"), 1);
    EXPECT_EQ(integerValue(value, "t"), 0);
    EXPECT_EQ(integerValue(value, "z"), 0);
    EXPECT_EQ(integerValue(value, "absent"), 0);
    EXPECT_EQ(integerValue(Value("no dictionary"), "i"), 0);
}

}  // namespace
}  // namespace quorl
