#include "TOTPAuthenticator.h"

#include "CommonUtils.h"
#include "Log.h"
#include "RecordNumber.h"

#include <utility>

namespace quorl {
namespace {

// The code of an empty key is known to everybody, and that of a short one soon found.
constexpr std::size_t shortestSecret = 10;

struct Range {
    std::int64_t least;
    std::int64_t most;
    bool holds(std::int64_t number) const { return least <= number && number <= most; }
};
constexpr Range digitCounts{6, 9};
constexpr Range timeSteps{15, 300};  // seconds
constexpr Range variances{0, 10};    // steps

// Out of every range when it is no number.
std::int64_t parameter(const Value& authData, std::string_view key) {
    return recordNumber(authData, key).value_or(-1);
}

}  // namespace

TOTPAuthenticator::TOTPAuthenticator(const Value* authData, std::string accessKey,
                                     const Clock& clock)
    : accessKey_(std::move(accessKey)), clock_(&clock) {
    if (!authData)
        return;
    name_ = stringValue(*authData, "AUTH_DISPLAY_NAME").value_or("");
    secretKey_ = stringValue(*authData, "SECRET_KEY").value_or("");
    parameters_.algorithm = stringValue(*authData, "ALGORITHM_TYPE").value_or("");
    parameters_.timeStep = parameter(*authData, "EXPIRY_TIME");
    parameters_.digits = parameter(*authData, "DIGITS");
    // A policy without a variance allows none.
    if (member(*authData, "AUTH_VARIANCE"))
        parameters_.variance = parameter(*authData, "AUTH_VARIANCE");
    isSecretKeyEncrypted_ = true;
    hardwareTokenSerialNumber_ = stringValue(*authData, "HARDWARE_TOKEN_SERIAL_NUMBER");
}

TOTPAuthenticator::~TOTPAuthenticator() {
    wipe(secretKey_);
    wipe(accessKey_);
}

bool TOTPAuthenticator::verifyTOTP(const Value& authCode) const {
    const std::optional<std::string> typed = stringValue(authCode, "AUTH_CODE");
    return typed && matchedStep(*typed);
}

std::optional<std::int64_t> TOTPAuthenticator::matchedStep(std::string_view code) const {
    if (!parametersAreSound()) {
        logLine(
            "verifyTOTP : {} digits, steps of {} s or a variance of {} are out of range, code "
            "refused",
            parameters_.digits, parameters_.timeStep, parameters_.variance);
        return std::nullopt;
    }
    auto base32 = secret();
    if (!base32)
        return std::nullopt;
    const WipeAtExit wiped(*base32);
    return matchingStep(*base32, code, getCurrentTimeInMillis(*clock_), parameters_);
}

std::int64_t TOTPAuthenticator::lastAcceptableStep() const {
    if (!parametersAreSound())
        return 0;
    return getCurrentTimeInMillis(*clock_) / 1000 / parameters_.timeStep + parameters_.variance;
}

bool TOTPAuthenticator::parametersAreSound() const {
    return digitCounts.holds(parameters_.digits) && timeSteps.holds(parameters_.timeStep) &&
           variances.holds(parameters_.variance);
}

std::optional<std::string> TOTPAuthenticator::secret() const {
    std::string base32 = secretKey_;
    if (isSecretKeyEncrypted_) {
        std::optional<AesKey> key = keyFromHex(accessKey_);
        if (!key) {
            logLine("verifyTOTP : the access key is not 64 hexadecimal digits, code refused");
            return std::nullopt;
        }
        const WipeAtExit wipedKey(*key);
        base32 = decrypt(secretKey_, *key, iv).value_or("");
    }
    Bytes bytes = base32Decode(base32);
    const WipeAtExit wipedBytes(bytes);
    if (bytes.size() >= shortestSecret)
        return base32;
    wipe(base32);
    logLine("verifyTOTP : no secret of {} bytes or more, code refused", shortestSecret);
    return std::nullopt;
}

}  // namespace quorl
