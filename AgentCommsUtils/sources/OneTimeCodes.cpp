#include "CryptoUtils.h"
#include "Hmac.h"
#include "Log.h"

#include <openssl/crypto.h>

#include <algorithm>

namespace quorl {
namespace {

constexpr std::int64_t mostDigits = 9;       // ten digits would not fit the 31 bits of a truncation
constexpr std::int64_t widestWindow = 1000;  // steps; what a policy asks for is a handful
constexpr std::uint8_t notALetter = 0xff;

constexpr std::array<std::uint8_t, 256> base32Values = [] {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
    std::array<std::uint8_t, 256> values{};
    values.fill(notALetter);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        values[static_cast<std::uint8_t>(alphabet[i])] = static_cast<std::uint8_t>(i);
    return values;
}();

bool isDigitCount(std::int64_t digits) {
    return digits >= 1 && digits <= mostDigits;
}

/// A code in place, so that a window of them costs no allocation.
struct Code {
    std::array<char, mostDigits> text{};
    std::size_t size = 0;
    std::string_view view() const { return {text.data(), size}; }
};

/// The counter's code; the digits lie within 1 to 9.
Code codeOf(Hmac& hmac, std::uint64_t counter, std::int64_t digits) {
    std::array<std::uint8_t, 8> message{};
    for (std::size_t i = message.size(); i-- > 0; counter >>= 8)
        message[i] = static_cast<std::uint8_t>(counter);
    const HmacDigest digest = hmac.digest(message);

    const std::size_t offset = digest.bytes[digest.size - 1] & 0x0f;
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8 | digest.bytes[offset + i];
    number &= 0x7fff'ffff;

    Code code;
    code.size = static_cast<std::size_t>(digits);
    for (std::size_t i = code.size; i-- > 0; number /= 10)
        code.text[i] = static_cast<char>('0' + number % 10);
    return code;
}

// The time taken tells how long the texts are, never how much of them agrees.
bool sameText(std::string_view a, std::string_view b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

Bytes base32Decode(std::string_view text) {
    Bytes bytes;
    bytes.reserve(text.size() * 5 / 8);
    std::uint32_t buffer = 0;
    unsigned pending = 0;
    std::size_t padding = 0;
    for (const char c : text) {
        const std::uint8_t value = base32Values[static_cast<std::uint8_t>(c)];
        if (c == '=')
            ++padding;
        if (value == notALetter)
            continue;
        buffer = buffer << 5 | value;
        pending += 5;
        if (pending >= 8) {
            pending -= 8;
            bytes.push_back(static_cast<std::uint8_t>(buffer >> pending));
        }
    }
    const auto dropped = static_cast<std::ptrdiff_t>(std::min(padding, bytes.size()));
    bytes.erase(bytes.end() - dropped, bytes.end());
    return bytes;
}

std::optional<std::string> getTotpCode(ByteView secret, std::uint64_t counter,
                                       std::string_view algorithm, std::int64_t digits) {
    const auto hash = hashAlgorithm(algorithm);
    if (!hash) {
        logLine("Unsupported algorithm.");
        return std::nullopt;
    }
    if (!isDigitCount(digits))
        return std::nullopt;
    Hmac hmac(*hash, secret);
    return std::string(codeOf(hmac, counter, digits).view());
}

std::optional<std::int64_t> matchingStep(std::string_view base32Secret, std::string_view typed,
                                         std::int64_t millis, const TotpParameters& parameters) {
    const std::int64_t variance = parameters.variance;
    if (parameters.timeStep < 1 || variance < 0)
        return std::nullopt;
    if (variance > (widestWindow - 1) / 2) {
        logLine("verifyCode : a window of {} steps to either side is too wide", variance);
        return std::nullopt;
    }
    const auto hash = hashAlgorithm(parameters.algorithm);
    if (!hash) {
        for (std::int64_t step = -variance; step <= variance; ++step)
            logLine("Unsupported algorithm.");
        return std::nullopt;
    }
    if (!isDigitCount(parameters.digits))
        return std::nullopt;

    Bytes secret = base32Decode(base32Secret);
    const WipeAtExit wiped(secret);
    Hmac hmac(*hash, secret);
    const std::int64_t now = millis / 1000 / parameters.timeStep;
    for (std::int64_t counter = now - variance; counter <= now + variance; ++counter) {
        const Code code = codeOf(hmac, static_cast<std::uint64_t>(counter), parameters.digits);
        if (sameText(code.view(), typed))
            return counter;
    }
    return std::nullopt;
}

bool verifyCode(std::string_view base32Secret, std::string_view typed, std::int64_t millis,
                const TotpParameters& parameters) {
    return matchingStep(base32Secret, typed, millis, parameters).has_value();
}

}  // namespace quorl
