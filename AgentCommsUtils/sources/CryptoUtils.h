#pragma once

#include "Bytes.h"
#include "Clock.h"
#include "HexKey.h"
#include "Hmac.h"
#include "Wipe.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// The initialisation vector of every encrypted value, and the built-in value key: see
/// valueKey() for the one in use.
extern const std::array<std::uint8_t, 16> iv;
extern const AesKey aesKey;

/// Base64 text (44 characters) of 32 random bytes; nothing and a log line on failure.
std::optional<std::string> generateBase64EncodedAESKey();

/// Base64 text of PBKDF2-HMAC-SHA256 (RFC 8018) of the input, 10,000 rounds, empty salt, 32 bytes.
std::optional<std::string> generateAESKeyFromInput(std::string_view input);

/// AES-256-CBC with PKCS#7 padding; the key is 32 bytes, the vector 16. Failure gives nothing.
std::optional<Bytes> encryptData(ByteView plain, ByteView key, ByteView vector);
std::optional<Bytes> decryptData(ByteView cipher, ByteView key, ByteView vector);

/// encryptData of UTF-8 text as base64, and back; text that is no UTF-8 gives nothing.
std::optional<std::string> encryptText(std::string_view plain, ByteView key, ByteView vector);
std::optional<std::string> decrypt(std::string_view base64, ByteView key, ByteView vector);

/// Standard base64 (RFC 4648) without line breaks; decoding of anything else gives nothing.
std::string base64Encode(ByteView bytes);
std::optional<Bytes> base64Decode(std::string_view text);

/// HMAC-SHA256 (RFC 2104) of the message under the key; empty when a text is not 7-bit ASCII.
Bytes getHMACSHA256Hash(std::string_view key, std::string_view message);

/// Lower-case hexadecimal, two digits a byte.
std::string convertDataBytesToHex(ByteView bytes);

/// Decodes base32 (RFC 4648 letters) leniently: bytes outside the alphabet are skipped, and every
/// "=" shortens the result by one byte, which is how the server's unpadded secrets are read.
Bytes base32Decode(std::string_view text);

/// One-time code (RFC 4226 truncation) for a counter: algorithm "SHA1", "SHA256" or "SHA512",
/// digits 1 to 9. Anything else gives nothing.
std::optional<std::string> getTotpCode(ByteView secret, std::uint64_t counter,
                                       std::string_view algorithm, std::int64_t digits);

/// What an authenticator's codes are checked with; the step in seconds, the variance in steps.
struct TotpParameters {
    std::string algorithm;
    std::int64_t digits = 0;
    std::int64_t variance = 0;
    std::int64_t timeStep = 0;
};

/// The time step whose code (RFC 6238) was typed, the earliest of the window around the time; the
/// codes are compared in constant time. A step below 1, a negative variance, a window of more than
/// 1,000 steps and digits outside 1 to 9 refuse every code.
std::optional<std::int64_t> matchingStep(std::string_view base32Secret, std::string_view typed,
                                         std::int64_t millis, const TotpParameters& parameters);

/// Whether the typed code is one of the window's.
bool verifyCode(std::string_view base32Secret, std::string_view typed, std::int64_t millis,
                const TotpParameters& parameters);

}  // namespace quorl
