// Checking a wrong code with a window of three steps, beside an independent library that validates
// the same code of the same, already decoded secret.
#include "CryptoUtils.h"
#include "Groups.h"
#include "Handle.h"
#include "SampleData.h"
#include "authenticators/TOTPAuthenticator.h"

#include <liboath/oath.h>
#include <openssl/evp.h>

#include <array>

namespace quorl::bench {
namespace {

constexpr const char* secret = "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ";
constexpr const char* wrongCode = "000000";
constexpr std::time_t frozenTime = 1'794'702'491;
constexpr Turns turns{.turns = 301, .runs = 200};

class FixedClock final : public Clock {
  public:
    std::chrono::system_clock::time_point now() const override {
        return std::chrono::system_clock::from_time_t(frozenTime);
    }
};

bool validateBare(ByteView key, int flags) {
    return oath_totp_validate4(reinterpret_cast<const char*>(key.data()), key.size(), frozenTime,
                               30, 0, 1, nullptr, nullptr, flags, wrongCode) >= 0;
}

using CipherContext = Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

// The least that an encrypted secret costs: base64 and AES, straight from OpenSSL.
void decryptBare(const std::string& base64, const Bytes& key) {
    std::array<unsigned char, 128> cipher{};
    std::array<unsigned char, 128> plain{};
    const int size =
        EVP_DecodeBlock(cipher.data(), asBytes(base64).data(), static_cast<int>(base64.size()));
    const CipherContext context(EVP_CIPHER_CTX_new());
    int written = 0;
    int rest = 0;
    EVP_DecryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data());
    EVP_DecryptUpdate(context.get(), plain.data(), &written, cipher.data(), size);
    EVP_DecryptFinal_ex(context.get(), plain.data() + written, &rest);
}

void expectRefused(bool accepted) {
    expect(!accepted, "a wrong code was accepted");
}

}  // namespace

void benchTotp(Figures& figures) {
    oath_init();
    const Bytes key = base32Decode(secret);
    const struct {
        const char *figure, *algorithm;
        int flags;
    } algorithms[] = {{"agent.totp.sha1.wrong", "SHA1", 0},
                      {"agent.totp.sha256.wrong", "SHA256", OATH_TOTP_HMAC_SHA256},
                      {"agent.totp.sha512.wrong", "SHA512", OATH_TOTP_HMAC_SHA512}};
    for (const auto& row : algorithms) {
        const TotpParameters parameters{row.algorithm, 6, 1, 30};
        const auto verify = [&] {
            expectRefused(verifyCode(secret, wrongCode, frozenTime * 1000, parameters));
        };
        const auto bare = [&] { expectRefused(validateBare(key, row.flags)); };
        figures.add(row.figure, compare(verify, bare, turns), ns);
    }

    const FixedClock clock;
    Bytes accessKey(32);
    for (std::size_t i = 0; i < accessKey.size(); ++i)
        accessKey[i] = static_cast<std::uint8_t>(i);
    const std::string encrypted = encryptText(secret, accessKey, iv).value();
    const Value record = sampleAuthenticator("app", encrypted);
    const TOTPAuthenticator app(&record, convertDataBytesToHex(accessKey), clock);
    const Value typed = {{"AUTH_CODE", wrongCode}};
    const auto bare = [&] {
        decryptBare(encrypted, accessKey);
        expectRefused(validateBare(key, 0));
    };
    figures.add("agent.totp.verify.wrong",
                compare([&] { expectRefused(app.verifyTOTP(typed)); }, bare, turns), ns);
}

}  // namespace quorl::bench
