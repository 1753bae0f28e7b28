#include "CryptoUtils.h"
#include "TestSandbox.h"

#include <gtest/gtest.h>
#include <liboath/oath.h>

#include <random>

namespace quorl::test {
namespace {

const std::string rfcSecret = "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ";  // 12345678901234567890

TEST(Base32, SkipsWhatIsNoLetterAndTakesAByteOffForEveryPaddingSign) {
    const struct {
        std::string text;
        std::string bytes;
    } rows[] = {{"", ""},
                {"MZXW6YTBOI", "foobar"},
                {"MZXW6YQ", "foob"},
                {"MZXW6===", ""},
                {"MZXW6YTBOI=", "fooba"},
                {"=MZXW6YTBOI", "fooba"},
                {"MZ=XW6YTB=OI", "foob"},
                {"========", ""},
                {"MZ==", ""},
                {"mzxw6yq", ""},
                {"MZ-XW 6Y01891Q\n", "foob"},
                {std::string("MZ\0XW\xff\x80"
                             "6YQ",
                             10),
                 "foob"},
                {"M", ""}};
    for (const auto& row : rows)
        EXPECT_EQ(toString(base32Decode(row.text)), row.bytes) << row.text;
}

std::string base32(const std::string& bytes) {
    char* text = nullptr;
    std::size_t length = 0;
    oath_base32_encode(bytes.data(), bytes.size(), &text, &length);
    std::string result(text, length);
    free(text);
    std::erase(result, '=');
    return result;
}

TEST(VerifyCode, AgreesWithAnIndependentLibraryOnRandomCases) {
    ASSERT_EQ(oath_init(), OATH_OK);
    const struct {
        const char* name;
        int flags;
    } algorithms[] = {
        {"SHA1", 0}, {"SHA256", OATH_TOTP_HMAC_SHA256}, {"SHA512", OATH_TOTP_HMAC_SHA512}};
    std::mt19937_64 random(20261115);
    const auto pick = [&](std::int64_t low, std::int64_t high) {
        return std::uniform_int_distribution<std::int64_t>(low, high)(random);
    };
    int accepted = 0;
    constexpr int cases = 12'000;
    for (int i = 0; i < cases; ++i) {
        const auto& algorithm = algorithms[pick(0, 2)];
        std::string secret(static_cast<std::size_t>(pick(1, 150)), '\0');
        for (char& byte : secret)
            byte = static_cast<char>(pick(0, 255));
        const TotpParameters parameters{.algorithm = algorithm.name,
                                        .digits = pick(6, 8),
                                        .variance = pick(0, 4),
                                        .timeStep = std::array{15, 30, 60, 300}[pick(0, 3)]};
        const std::int64_t now = pick(1'000'000'000, 4'000'000'000);
        const auto step = static_cast<unsigned>(parameters.timeStep);

        // A code from about the window's edge, sometimes with one digit changed.
        std::array<char, 9> code{};
        const std::int64_t offset = pick(-parameters.variance - 1, parameters.variance + 1);
        oath_totp_generate2(secret.data(), secret.size(), now + offset * parameters.timeStep, step,
                            0, static_cast<unsigned>(parameters.digits), algorithm.flags,
                            code.data());
        std::string typed = code.data();
        if (pick(0, 3) == 0) {
            char& digit = typed[static_cast<std::size_t>(pick(0, parameters.digits - 1))];
            digit = static_cast<char>('0' + (digit - '0' + 1) % 10);
        }
        const bool expected =
            oath_totp_validate4(secret.data(), secret.size(), now, step, 0,
                                static_cast<std::size_t>(parameters.variance), nullptr, nullptr,
                                algorithm.flags, typed.c_str()) >= 0;
        accepted += expected;
        ASSERT_EQ(verifyCode(base32(secret), typed, now * 1000 + pick(0, 999), parameters),
                  expected)
            << i << " " << algorithm.name << " " << typed;
    }
    EXPECT_GT(accepted, cases / 4);
    EXPECT_LT(accepted, cases * 3 / 4);
}

TEST(VerifyCode, TakesTheCodesOfItsWindowAndNothingThatOnlyResemblesOne) {
    constexpr std::int64_t at = 1'234'567'890'000;
    const auto codeAt = [](std::int64_t millis) {
        const auto secret = base32Decode(rfcSecret);
        return *getTotpCode(secret, static_cast<std::uint64_t>(millis / 30'000), "SHA1", 6);
    };
    const std::string right = codeAt(at);
    const auto accepts = [&](const std::string& typed, TotpParameters parameters) {
        return verifyCode(rfcSecret, typed, at, parameters);
    };
    // At this time the code begins with zeros (RFC 6238: 07081804).
    EXPECT_TRUE(verifyCode(rfcSecret, "081804", 1'111'111'109'000, {"SHA1", 6, 0, 30}));
    EXPECT_FALSE(verifyCode(rfcSecret, "81804", 1'111'111'109'000, {"SHA1", 6, 0, 30}));

    const std::string hostile[] = {"",
                                   " " + right,
                                   right + " ",
                                   right + "0",
                                   right.substr(1),
                                   "+" + right.substr(1),
                                   right + std::string(1, '\0'),
                                   right.substr(0, 3) + "\u200b" + right.substr(3),
                                   "٠٠٥٩٢٤",
                                   "abcdef",
                                   std::string(10'000, '0'),
                                   std::string(10'000, 'x')};
    ASSERT_EQ(right, "005924");  // so that the Arabic digits spell the right one
    for (const std::string& typed : hostile)
        EXPECT_FALSE(accepts(typed, {"SHA1", 6, 1, 30})) << typed.substr(0, 20);
}

TEST(VerifyCode, RefusesParametersThatMakeNoSense) {
    constexpr std::int64_t at = 1'234'567'890'000;
    // The code of the counter that the step leads to, whether it makes sense or not.
    const auto codeFor = [&](std::int64_t step) {
        const std::int64_t counter = step == 0 ? 0 : at / 1000 / step;
        return *getTotpCode(base32Decode(rfcSecret), static_cast<std::uint64_t>(counter), "SHA1",
                            8);
    };
    const struct {
        TotpParameters parameters;
        bool accepted;
    } rows[] = {{{"SHA1", 8, 0, 30}, true},          {{"SHA1", 8, 499, 30}, true},
                {{"SHA1", 8, 500, 30}, false},       {{"SHA1", 8, 1'000'000'000, 30}, false},
                {{"SHA1", 8, INT64_MAX, 30}, false}, {{"SHA1", 8, -1, 30}, false},
                {{"SHA1", 8, INT64_MIN, 30}, false}, {{"SHA1", 8, 0, 0}, false},
                {{"SHA1", 8, 0, -30}, false},        {{"SHA1", 8, 0, INT64_MIN}, false},
                {{"SHA1", 0, 0, 30}, false},         {{"SHA1", -8, 0, 30}, false},
                {{"SHA1", 10, 0, 30}, false},        {{"SHA1", 20, 0, 30}, false},
                {{"sha1", 8, 0, 30}, false},         {{"", 8, 0, 30}, false}};
    for (const auto& row : rows) {
        const LogCapture log;
        const auto& given = row.parameters;
        EXPECT_EQ(verifyCode(rfcSecret, codeFor(given.timeStep), at, given), row.accepted)
            << given.algorithm << " " << given.digits << " " << given.variance << " "
            << given.timeStep;
        // Only a window out of all bounds is worth a line; an empty code never passes.
        EXPECT_EQ(log.count("too wide"), given.variance >= 500 ? 1U : 0U);
        EXPECT_FALSE(verifyCode(rfcSecret, "", at, given));
    }
    EXPECT_EQ(getTotpCode(asBytes("key"), 1, "SHA1", 9).value_or("").size(), 9U);
    EXPECT_EQ(getTotpCode(asBytes("key"), 1, "SHA1", 10), std::nullopt);

    const LogCapture log;
    EXPECT_FALSE(verifyCode(rfcSecret, codeFor(30), at, {"MD5", 8, 2, 30}));
    EXPECT_EQ(log.count("Unsupported algorithm.\n"), 5U);
    // Times before 1970 and at the ends of the range are counters like any other.
    for (const std::int64_t millis : {INT64_MIN, std::int64_t{-1}, INT64_MAX})
        EXPECT_FALSE(verifyCode(rfcSecret, "x", millis, {"SHA1", 6, 499, 1}));
}

}  // namespace
}  // namespace quorl::test
