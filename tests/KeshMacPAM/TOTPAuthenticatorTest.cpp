#include "CryptoUtils.h"
#include "TestClock.h"
#include "TestSandbox.h"
#include "authenticators/TOTPAuthenticator.h"

#include <gtest/gtest.h>

namespace quorl::test {
namespace {

using namespace std::chrono_literals;

// printf GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ | openssl enc -aes-256-cbc -a -A -K $accessKey
//     -iv 5c1e0a7f3b92d4e6a18c07f2b4d96e31
const std::string accessKey = "000102030405060708090a0b0c0d0e0f101112131415161718191A1B1C1D1E1F";
const std::string encryptedSecret =
    "aXQKLBCJi8sDKkboi3kIxB455XAVsV50rgjT/MZ7Z2veqbWNB8VPJjlgP67Gv9oN";
const std::string rightCode = "94287082";      // at 59 s
const std::string emptyKeysCode = "30812658";  // of an empty secret, by Python's hmac

Value record() {
    return {{"AUTH_DISPLAY_NAME", "App"},
            {"SECRET_KEY", encryptedSecret},
            {"ALGORITHM_TYPE", "SHA1"},
            {"EXPIRY_TIME", 30},
            {"DIGITS", 8},
            {"AUTH_VARIANCE", 0}};
}

bool accepts(const Value& data, const std::string& key, const Value& code) {
    const TestClock clock(59s);
    return TOTPAuthenticator(&data, key, clock).verifyTOTP({{"AUTH_CODE", code}});
}

TEST(TOTPAuthenticator, DecryptsTheSecretAndChecksTheCodeAtTheClocksTime) {
    const Value data = record();
    TestClock clock(59s);
    const TOTPAuthenticator app(&data, accessKey, clock);
    EXPECT_EQ(app.getAuthName(), "App");
    EXPECT_EQ(app.getDigits(), 8);
    EXPECT_FALSE(app.hardwareTokenSerialNumber());
    EXPECT_TRUE(app.verifyTOTP({{"AUTH_CODE", rightCode}}));
    EXPECT_FALSE(app.verifyTOTP({{"AUTH_CODE", "94287083"}}));
    clock.advance(1s);
    EXPECT_FALSE(app.verifyTOTP({{"AUTH_CODE", rightCode}}));
}

TEST(TOTPAuthenticator, RefusesAnAccessKeyThatIsNot64HexadecimalDigits) {
    const std::string cut = accessKey.substr(1);
    for (const std::string& key : {std::string(), cut, cut.substr(1), accessKey + "00", "g" + cut,
                                   cut + " ", std::string(64, '\0')}) {
        const LogCapture log;
        EXPECT_FALSE(accepts(record(), key, rightCode)) << key;
        EXPECT_EQ(log.count("\n"), 1U) << log.text();
        EXPECT_FALSE(key.size() > 8 && log.has(key.substr(2, 8)));
    }
}

TEST(TOTPAuthenticator, RefusesEveryCodeOfASecretThatAnybodyCouldGuess) {
    Bytes key;
    for (std::uint8_t i = 0; i < 32; ++i)
        key.push_back(i);
    const auto encrypted = [&](const char* base32) { return encryptText(base32, key, iv).value(); };
    const std::string secrets[] = {"", "AAAA", "no base64", encryptedSecret.substr(4),
                                   // Encrypted under another key, which fails on the padding.
                                   encryptText("GEZDGNBVGY3TQOJQ", aesKey, iv).value_or(""),
                                   encrypted("A"), encrypted("===="), encrypted("mzxw6yq"),
                                   encrypted("GEZDGNBVGY3TQOJ"), encrypted("GEZDGNBVGY3TQOJQ=")};
    for (const std::string& secret : secrets) {
        Value data = record();
        data["SECRET_KEY"] = secret;
        const LogCapture log;
        EXPECT_FALSE(accepts(data, accessKey, rightCode)) << secret;
        EXPECT_FALSE(accepts(data, accessKey, emptyKeysCode)) << secret;
        EXPECT_EQ(log.count("verifyTOTP : no secret of 10 bytes or more, code refused\n"), 2U);
    }
    // By Python's hmac: the ten bytes that are enough.
    Value shortest = record();
    shortest["SECRET_KEY"] = encrypted("GEZDGNBVGY3TQOJQ");
    EXPECT_TRUE(accepts(shortest, accessKey, "13263420"));
}

TEST(TOTPAuthenticator, KnowsTheStepOfACode) {
    Value data = record();
    data["AUTH_VARIANCE"] = 2;
    const TestClock clock(100s);  // step 3; the code is that of step 1
    const TOTPAuthenticator app(&data, accessKey, clock);
    EXPECT_EQ(app.matchedStep(rightCode), 1);
    EXPECT_EQ(app.matchedStep("94287083"), std::nullopt);
    EXPECT_EQ(app.lastAcceptableStep(), 5);
}

TEST(TOTPAuthenticator, RefusesParametersOutOfRange) {
    const struct {
        const char* key;
        Value least, most, below, above;
    } rows[] = {{"DIGITS", 6, 9, 5, 10},
                {"EXPIRY_TIME", 15, 300, 14, 301},
                {"AUTH_VARIANCE", 0, 10, -1, 11}};
    const TestClock clock(59s);
    for (const auto& row : rows) {
        const auto refused = [&](const Value& value) {
            Value data = record();
            data[row.key] = value;
            const LogCapture log;
            const TOTPAuthenticator app(&data, accessKey, clock);
            EXPECT_FALSE(app.matchedStep("00000000"));
            return log.has("are out of range, code refused");
        };
        for (const Value& value : {row.below, row.above, Value(), Value("x"), Value::array()})
            EXPECT_TRUE(refused(value)) << row.key << value;
        for (const Value& value : {row.least, row.most, Value(row.most.dump())})
            EXPECT_FALSE(refused(value)) << row.key << value;
    }
}

TEST(TOTPAuthenticator, TakesMembersOfTheWrongKindForAbsentOnes) {
    const Value junk[] = {nullptr, true,        -7,  INT64_MAX,      UINT64_MAX,
                          1e300,   0.25,        "x", Value::array(), Value::object(),
                          {1, 2},  {{"a", "b"}}};
    const Value whole = record();
    for (const auto& [key, unused] : whole.items()) {
        for (const Value& value : junk) {
            Value data = record();
            data[key] = value;
            // No code in reach of the clock is right without the right member.
            const bool harmless =
                key == "AUTH_DISPLAY_NAME" || (key == "AUTH_VARIANCE" && value == 0.25);
            EXPECT_EQ(accepts(data, accessKey, rightCode), harmless) << key << " " << value;
        }
    }
    for (const Value& code : junk)
        EXPECT_FALSE(accepts(record(), accessKey, code)) << code;
    EXPECT_FALSE(accepts(record(), accessKey, 94287082));
    EXPECT_FALSE(accepts("no record", accessKey, rightCode));
    const Value data = record();
    const TestClock clock(59s);
    EXPECT_FALSE(TOTPAuthenticator(&data, accessKey, clock).verifyTOTP(Value(rightCode)));
}

}  // namespace
}  // namespace quorl::test
