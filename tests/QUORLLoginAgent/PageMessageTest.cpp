#include "PageMessage.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

TEST(PageMessage, WhatIsNoJSONObjectIsAFailureWithoutKeys) {
    const std::string deep = std::string(1000, '[') + std::string(1000, ']');
    for (const std::optional<std::string>& body : std::vector<std::optional<std::string>>{
             std::nullopt, "", "no json", "[1]", "\"SUCCESS\"", "{\"METHOD\":", "\xff\xfe{}",
             "{\"SYSTEM_MFA_RESULT\":\"SUCCESS\"} trailing",
             "{\"SYSTEM_MFA_RESULT\":\"SUCCESS\",\"x\":" + deep + "}",
             "{\"SYSTEM_MFA_RESULT\":\"SUCCESS\",\"x\":\"" + std::string(10 << 20, 'x') + "\"}"}) {
        const Value message = parsePageMessage(body);
        EXPECT_EQ(pageMethod(message), PageMethod::result);
        const PageResult result = pageResult(message);
        EXPECT_FALSE(result.verified);
        EXPECT_EQ(result.errorMessage, "");
        EXPECT_EQ(result.response, (Value{{"MFA_AUTH_RESULT", "FAILURE"},
                                          {"KEY", ""},
                                          {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", ""}}));
    }
}

TEST(PageMessage, AResultKeepsWhatThePageSaysAndOnlySuccessVerifies) {
    const auto result = [](const char* json) { return pageResult(parsePageMessage(json)); };
    const PageResult success = result(
        R"({"SYSTEM_MFA_RESULT":"SUCCESS","SYSTEM_MFA_KEY":"k","SYSTEM_MFA_ERROR_MSG":"x",
            "OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN":"t"})");
    EXPECT_TRUE(success.verified);
    EXPECT_EQ(success.response, (Value{{"MFA_AUTH_RESULT", "SUCCESS"},
                                       {"KEY", "k"},
                                       {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", "t"}}));
    EXPECT_EQ(result(R"({"SYSTEM_MFA_RESULT":"FAILURE","SYSTEM_MFA_ERROR_MSG":"x"})").errorMessage,
              "x");
    EXPECT_EQ(result(R"({"SYSTEM_MFA_RESULT":null})").response["MFA_AUTH_RESULT"], "FAILURE");
    EXPECT_EQ(result(R"({"SYSTEM_MFA_RESULT":"LATER"})").response["MFA_AUTH_RESULT"], "LATER");
    // Another kind is passed on as it is, and is no success.
    EXPECT_EQ(result(R"({"SYSTEM_MFA_RESULT":["SUCCESS"]})").response["MFA_AUTH_RESULT"],
              Value::array({"SUCCESS"}));
    for (const char* almost :
         {R"({"SYSTEM_MFA_RESULT":"success"})", R"({"SYSTEM_MFA_RESULT":["SUCCESS"]})",
          R"({"SYSTEM_MFA_RESULT":"SUCCESS "})", R"({"SYSTEM_MFA_RESULT":1})"})
        EXPECT_FALSE(result(almost).verified) << almost;
}

}  // namespace
}  // namespace quorl
