#include "CryptoUtils.h"

#include "Handle.h"
#include "Log.h"
#include "Utf8.h"

#include <nettle/hmac.h>
#include <nettle/pbkdf2.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <limits>

namespace quorl {
namespace {

using CipherContext = Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

constexpr int keyDerivationRounds = 10'000;

// Fetched once and kept for the process: the look-up by name costs more than a short encryption.
const EVP_CIPHER* aes256Cbc() {
    static const EVP_CIPHER* const cipher = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
    return cipher;
}

enum class Direction { decrypt = 0, encrypt = 1 };

std::optional<Bytes> runCipher(Direction direction, ByteView input, ByteView key, ByteView vector) {
    constexpr std::size_t block = 16;
    constexpr std::size_t largest = std::numeric_limits<int>::max() - 2 * block;
    if (key.size() != 32 || vector.size() != block || input.size() > largest)
        return std::nullopt;
    const CipherContext context(EVP_CIPHER_CTX_new());
    if (!context || !EVP_CipherInit_ex2(context.get(), aes256Cbc(), key.data(), vector.data(),
                                        static_cast<int>(direction), nullptr)) {
        ERR_clear_error();
        return std::nullopt;
    }
    Bytes output(input.size() + block);
    int written = 0;
    int rest = 0;
    if (!EVP_CipherUpdate(context.get(), output.data(), &written, input.data(),
                          static_cast<int>(input.size())) ||
        !EVP_CipherFinal_ex(context.get(), output.data() + written, &rest)) {
        ERR_clear_error();
        wipe(output);
        return std::nullopt;
    }
    output.resize(static_cast<std::size_t>(written) + static_cast<std::size_t>(rest));
    return output;
}

}  // namespace

const std::array<std::uint8_t, 16> iv = {0x5c, 0x1e, 0x0a, 0x7f, 0x3b, 0x92, 0xd4, 0xe6,
                                         0xa1, 0x8c, 0x07, 0xf2, 0xb4, 0xd9, 0x6e, 0x31};
static_assert(keyFromHex(QUORL_VALUE_KEY), "QUORL_VALUE_KEY must be 64 hexadecimal digits");
constexpr AesKey aesKey = *keyFromHex(QUORL_VALUE_KEY);

std::optional<std::string> generateBase64EncodedAESKey() {
    std::array<std::uint8_t, 32> key{};
    const int status = RAND_bytes(key.data(), static_cast<int>(key.size()));
    if (status != 1) {
        ERR_clear_error();
        logLine("Error generating random key: {}", status);
        return std::nullopt;
    }
    std::string text = base64Encode(key);
    OPENSSL_cleanse(key.data(), key.size());
    return text;
}

std::optional<std::string> generateAESKeyFromInput(std::string_view input) {
    // nettle derives the same bytes as OpenSSL in a fraction of the time. It reports no failure:
    // the arguments here are always within its bounds.
    std::array<std::uint8_t, 32> key{};
    hmac_sha256_ctx context;
    hmac_sha256_set_key(&context, input.size(), asBytes(input).data());
    PBKDF2(&context, hmac_sha256_update, hmac_sha256_digest, SHA256_DIGEST_SIZE,
           keyDerivationRounds, 0, nullptr, key.size(), key.data());
    std::string text = base64Encode(key);
    OPENSSL_cleanse(&context, sizeof context);
    OPENSSL_cleanse(key.data(), key.size());
    return text;
}

std::optional<Bytes> encryptData(ByteView plain, ByteView key, ByteView vector) {
    return runCipher(Direction::encrypt, plain, key, vector);
}

std::optional<Bytes> decryptData(ByteView cipher, ByteView key, ByteView vector) {
    return runCipher(Direction::decrypt, cipher, key, vector);
}

std::optional<std::string> encryptText(std::string_view plain, ByteView key, ByteView vector) {
    const auto cipher = encryptData(asBytes(plain), key, vector);
    return cipher ? std::optional(base64Encode(*cipher)) : std::nullopt;
}

std::optional<std::string> decrypt(std::string_view base64, ByteView key, ByteView vector) {
    const auto cipher = base64Decode(base64);
    if (!cipher)
        return std::nullopt;
    auto plain = decryptData(*cipher, key, vector);
    if (!plain)
        return std::nullopt;
    const WipeAtExit wiped(*plain);
    if (!isUtf8(asText(*plain)))
        return std::nullopt;
    return toString(*plain);
}

std::string base64Encode(ByteView bytes) {
    // One more for the terminator that the encoder appends.
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::optional<Bytes> base64Decode(std::string_view text) {
    constexpr std::string_view letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (text.size() % 4 != 0 || text.size() > std::numeric_limits<int>::max())
        return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    const std::string_view body = text.substr(0, text.size() - padding);
    // Checked here, since the decoder itself trims blanks and takes padding in the middle.
    if (body.find_first_not_of(letters) != body.npos)
        return std::nullopt;
    Bytes bytes(text.size() / 4 * 3);
    if (EVP_DecodeBlock(bytes.data(), asBytes(text).data(), static_cast<int>(text.size())) < 0)
        return std::nullopt;
    bytes.resize(bytes.size() - padding);
    return bytes;
}

Bytes getHMACSHA256Hash(std::string_view key, std::string_view message) {
    if (!isAscii(key) || !isAscii(message))
        return {};
    const HmacDigest digest = Hmac(HashAlgorithm::sha256, asBytes(key)).digest(asBytes(message));
    return {digest.view().begin(), digest.view().end()};
}

std::string convertDataBytesToHex(ByteView bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        hex += digits[byte >> 4];
        hex += digits[byte & 0x0f];
    }
    return hex;
}

}  // namespace quorl
