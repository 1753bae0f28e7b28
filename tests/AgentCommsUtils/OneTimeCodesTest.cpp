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
                {"MZXW6YTBOI=", "fooba"},
                {"MZ=XW6YTB=OI", "foob"},
                {"MZ-XW 6Y01891Q\n", "foob"},
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

// At this time the code begins with zeros (RFC 6238: 07081804).
TEST(VerifyCode, ZerosAtTheBeginningAreDigitsLikeAnyOther) {
    EXPECT_TRUE(verifyCode(rfcSecret, "081804", 1'111'111'109'000, {"SHA1", 6, 0, 30}));
    EXPECT_FALSE(verifyCode(rfcSecret, "81804", 1'111'111'109'000, {"SHA1", 6, 0, 30}));
    EXPECT_FALSE(verifyCode(rfcSecret, "", 1'111'111'109'000, {"SHA1", 6, 0, 30}));
}

}  // namespace
}  // namespace quorl::test
