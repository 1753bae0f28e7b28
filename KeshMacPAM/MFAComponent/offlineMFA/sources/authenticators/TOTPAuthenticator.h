#pragma once

#include "Clock.h"
#include "Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quorl {

/// One enrolled authenticator of a user: an app or a hardware token that makes one-time codes.
class TOTPAuthenticator {
  public:
    /// From the record ("AUTH_DISPLAY_NAME", "SECRET_KEY", "ALGORITHM_TYPE", "EXPIRY_TIME",
    /// "DIGITS", "AUTH_VARIANCE", "HARDWARE_TOKEN_SERIAL_NUMBER"), or empty without one. The access
    /// key (64 hexadecimal digits) decrypts the secret.
    TOTPAuthenticator(const Value* authData, std::string accessKey,
                      const Clock& clock = systemClock());
    ~TOTPAuthenticator();
    TOTPAuthenticator(TOTPAuthenticator&&) = default;

    const std::string& getAuthName() const { return name_; }
    std::int64_t getDigits() const { return digits_; }
    const std::optional<std::string>& hardwareTokenSerialNumber() const {
        return hardwareTokenSerialNumber_;
    }

    /// Whether the code under "AUTH_CODE" is right at this moment.
    bool verifyTOTP(const Value& authCode) const;

  private:
    bool isSecretKeyEncrypted_ = false;
    std::string secretKey_;
    std::int64_t digits_ = 0;
    std::int64_t timeStep_ = 0;
    std::int64_t variance_ = 0;
    std::string algorithm_;
    std::string name_;
    std::string accessKey_;
    std::optional<std::string> hardwareTokenSerialNumber_;
    const Clock* clock_;
};

}  // namespace quorl
