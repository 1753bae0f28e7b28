#pragma once

#include "Clock.h"
#include "CryptoUtils.h"
#include "Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// One enrolled authenticator of a user: an app or a hardware token that makes one-time codes.
class TOTPAuthenticator {
  public:
    /// From the record ("AUTH_DISPLAY_NAME", "SECRET_KEY", "ALGORITHM_TYPE", "EXPIRY_TIME",
    /// "DIGITS", "AUTH_VARIANCE", "HARDWARE_TOKEN_SERIAL_NUMBER"), or empty without one. The access
    /// key (64 hexadecimal digits) decrypts the secret. The clock outlives it.
    TOTPAuthenticator(const Value* authData, std::string accessKey, const Clock& clock);
    ~TOTPAuthenticator();
    TOTPAuthenticator(TOTPAuthenticator&&) = default;

    const std::string& getAuthName() const { return name_; }
    std::int64_t getDigits() const { return parameters_.digits; }
    const std::optional<std::string>& hardwareTokenSerialNumber() const {
        return hardwareTokenSerialNumber_;
    }

    /// Whether the code under "AUTH_CODE" is right at this moment.
    bool verifyTOTP(const Value& authCode) const;

    /// The time step whose code this is, at this moment; nothing when the code is wrong. A log line
    /// says so when no code can be right: without 6 to 9 digits, a time step of 15 to 300 s, a
    /// variance of 0 to 10 steps, and a secret of at least 10 bytes.
    std::optional<std::int64_t> matchedStep(std::string_view code) const;

    /// The last time step whose code would be taken at this moment; 0 when no code can be right.
    std::int64_t lastAcceptableStep() const;

  private:
    bool parametersAreSound() const;
    /// The secret as base32 text; nothing, and a log line, when it is none to be used.
    std::optional<std::string> secret() const;

    bool isSecretKeyEncrypted_ = false;
    std::string secretKey_;
    TotpParameters parameters_;
    std::string name_;
    std::string accessKey_;
    std::optional<std::string> hardwareTokenSerialNumber_;
    const Clock* clock_;
};

}  // namespace quorl
