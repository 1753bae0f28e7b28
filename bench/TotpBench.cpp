// Checking a wrong code with a window of three steps, beside an independent library that validates
// the same code of the same, already decoded secret.
#include "SampleData.h"
#include "TestClock.h"
#include "authenticators/TOTPAuthenticator.h"

#include <liboath/oath.h>

namespace quorl::bench {
namespace {

constexpr const char* secret = "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ";
constexpr const char* wrongCode = "000000";
constexpr std::time_t frozenTime = 1'794'702'491;

void expectRefused(bool accepted) {
    expect(!accepted, "a wrong code was accepted");
}

void validateBare(ByteView key, int flags) {
    expectRefused(oath_totp_validate4(reinterpret_cast<const char*>(key.data()), key.size(),
                                      frozenTime, 30, 0, 1, nullptr, nullptr, flags,
                                      wrongCode) >= 0);
}

// The least that an encrypted secret costs: base64 and AES, straight from OpenSSL.
void decryptBare(const std::string& base64, const Bytes& key) {
    std::array<unsigned char, 128> cipher{};
    EVP_DecodeBlock(cipher.data(), asBytes(base64).data(), static_cast<int>(base64.size()));
    bareCipher(key, asText(cipher).substr(0, base64.size() / 4 * 3), 0);
}

}  // namespace

void benchTotp() {
    constexpr Turns turns{.turns = 301, .runs = 200};
    oath_init();
    const Bytes key = base32Decode(secret);
    const struct {
        const char *figure, *algorithm;
        int flags;
    } algorithms[] = {{"agent.totp.sha1.wrong", "SHA1", 0},
                      {"agent.totp.sha256.wrong", "SHA256", OATH_TOTP_HMAC_SHA256},
                      {"agent.totp.sha512.wrong", "SHA512", OATH_TOTP_HMAC_SHA512}};
    for (const auto& [figure, algorithm, flags] : algorithms) {
        const TotpParameters parameters{algorithm, 6, 1, 30};
        const auto verify = [&] {
            expectRefused(verifyCode(secret, wrongCode, frozenTime * 1000, parameters));
        };
        print(figure, compare(turns, verify, [&, flags = flags] { validateBare(key, flags); }), ns);
    }

    const test::TestClock clock{std::chrono::seconds(frozenTime)};
    const Bytes accessKey(32, 0x5A);
    const std::string encrypted = encryptText(secret, accessKey, iv).value();
    const Value record = sampleAuthenticator(encrypted);
    const TOTPAuthenticator app(&record, convertDataBytesToHex(accessKey), clock);
    const Value typed = {{"AUTH_CODE", wrongCode}};
    const auto bare = [&] {
        decryptBare(encrypted, accessKey);
        validateBare(key, 0);
    };
    print("agent.totp.verify.wrong",
          compare(
              turns, [&] { expectRefused(app.verifyTOTP(typed)); }, bare),
          ns);
}

}  // namespace quorl::bench
