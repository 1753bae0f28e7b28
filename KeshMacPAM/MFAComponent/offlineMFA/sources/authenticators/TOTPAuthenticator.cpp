#include "TOTPAuthenticator.h"

#include "CommonUtils.h"
#include "CryptoUtils.h"
#include "Log.h"

#include <utility>

namespace quorl {
namespace {

constexpr std::size_t keyLength = 32;

// Nothing unless the text is exactly the 64 digits of a key: a key padded or cut would be
// guessable, or another than the server's.
std::optional<Bytes> keyFromHex(std::string_view hex) {
    if (hex.size() != 2 * keyLength)
        return std::nullopt;
    Bytes key;
    key.reserve(keyLength);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const auto high = hexDigit(hex[i]);
        const auto low = hexDigit(hex[i + 1]);
        if (!high || !low) {
            wipe(key);
            return std::nullopt;
        }
        key.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
    }
    return key;
}

}  // namespace

TOTPAuthenticator::TOTPAuthenticator(const Value* authData, std::string accessKey,
                                     const Clock& clock)
    : accessKey_(std::move(accessKey)), clock_(&clock) {
    if (!authData)
        return;
    name_ = stringValue(*authData, "AUTH_DISPLAY_NAME").value_or("");
    secretKey_ = stringValue(*authData, "SECRET_KEY").value_or("");
    algorithm_ = stringValue(*authData, "ALGORITHM_TYPE").value_or("");
    timeStep_ = integerValue(*authData, "EXPIRY_TIME");
    digits_ = integerValue(*authData, "DIGITS");
    variance_ = integerValue(*authData, "AUTH_VARIANCE");
    isSecretKeyEncrypted_ = true;
    hardwareTokenSerialNumber_ = stringValue(*authData, "HARDWARE_TOKEN_SERIAL_NUMBER");
}

TOTPAuthenticator::~TOTPAuthenticator() {
    wipe(secretKey_);
    wipe(accessKey_);
}

bool TOTPAuthenticator::verifyTOTP(const Value& authCode) const {
    const std::optional<std::string> typed = stringValue(authCode, "AUTH_CODE");
    std::string secret;
    const WipeAtExit wipedSecret(secret);
    if (isSecretKeyEncrypted_) {
        std::optional<Bytes> key = keyFromHex(accessKey_);
        if (!key) {
            logLine("verifyTOTP : the access key is not {} hexadecimal digits, code refused",
                    2 * keyLength);
            return false;
        }
        const WipeAtExit wipedKey(*key);
        // A secret that does not decrypt counts as an empty one.
        secret = decrypt(secretKey_, *key, iv).value_or("");
    } else {
        secret = secretKey_;
    }
    return typed && verifyCode(secret, *typed, getCurrentTimeInMillis(*clock_),
                               {.algorithm = algorithm_,
                                .digits = digits_,
                                .variance = variance_,
                                .timeStep = timeStep_});
}

}  // namespace quorl
