#pragma once

#include "CryptoUtils.h"
#include "Figures.h"
#include "Handle.h"
#include "Value.h"

#include <openssl/evp.h>

namespace quorl::bench {

/// A request as a login process sends it, with every key there is.
inline const Value sampleRequest = Value::parse(R"({
    "MFA_REQUEST_URL": "/AgentMFA.cc?transaction=8f14e45fceea167a5a36dedd4bea2543",
    "USER_NAME": "alice.liddell", "DOMAIN_NAME": "corp.example.com",
    "POST_DATA": "user=alice.liddell&domain=corp.example.com",
    "REQUEST_HEADERS": {"X-Session": "c4ca4238a0b923820dcc509a6f75849b"},
    "OFFLINE_MFA": false, "MFA_ERROR_MSG": "", "ERROR_MSG": ""})");

/// An authenticator's data with its encrypted secret.
inline Value sampleAuthenticator(const std::string& encryptedSecret) {
    Value data = Value::parse(R"({"AUTH_DISPLAY_NAME": "Phone", "ALGORITHM_TYPE": "SHA1",
                                  "EXPIRY_TIME": 30, "DIGITS": 6, "AUTH_VARIANCE": 1})");
    data["SECRET_KEY"] = encryptedSecret;
    return data;
}

/// A user's record with that authenticator enrolled under each of the numbers.
inline Value sampleRecord(const std::string& encryptedSecret, const std::vector<int>& numbers) {
    Value record = Value::parse(R"({
        "POLICY_DATA": {"MFA_NO_OF_FACTORS": 1, "MANDATORY_AUTHS": [],
                        "OFFLINE_MFA_LIMIT_TYPE": 2, "OFFLINE_MFA_LIMIT_VALUE": 10000},
        "USER_DATA": {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS": 3, "LAST_ONLINE_MFA_TIME": 1794702491}})");
    record["POLICY_DATA"]["ENABLED_AUTHS"] = numbers;
    for (const int number : numbers)
        record["USER_DATA"]["AUTH_ENROLLMENT"][std::to_string(number)] =
            sampleAuthenticator(encryptedSecret);
    return record;
}

/// The cipher of every stored value, straight from OpenSSL: encrypts with 1, decrypts with 0.
inline std::string bareCipher(ByteView key, std::string_view input, int encrypt) {
    const Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free> context(EVP_CIPHER_CTX_new());
    EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data(), encrypt);
    std::string output(input.size() + 16, '\0');
    auto* out = reinterpret_cast<unsigned char*>(output.data());
    int written = 0;
    int rest = 0;
    EVP_CipherUpdate(context.get(), out, &written, asBytes(input).data(),
                     static_cast<int>(input.size()));
    EVP_CipherFinal_ex(context.get(), out + written, &rest);
    output.resize(static_cast<std::size_t>(written + rest));
    return output;
}

}  // namespace quorl::bench
