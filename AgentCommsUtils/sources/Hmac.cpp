#include "Hmac.h"

#include <nettle/hmac.h>
#include <openssl/crypto.h>

namespace quorl {

// nettle, since its state lies in place: for messages of a few bytes a context of OpenSSL costs
// several times the hashing itself.
struct Hmac::State {
    HashAlgorithm algorithm;
    union {
        hmac_sha1_ctx sha1;
        hmac_sha256_ctx sha256;
        hmac_sha512_ctx sha512;
    };
};

std::optional<HashAlgorithm> hashAlgorithm(std::string_view name) {
    if (name == "SHA1")
        return HashAlgorithm::sha1;
    if (name == "SHA256")
        return HashAlgorithm::sha256;
    if (name == "SHA512")
        return HashAlgorithm::sha512;
    return std::nullopt;
}

Hmac::Hmac(HashAlgorithm algorithm, ByteView key) : state_(std::make_unique<State>()) {
    state_->algorithm = algorithm;
    switch (algorithm) {
        case HashAlgorithm::sha1:
            hmac_sha1_set_key(&state_->sha1, key.size(), key.data());
            break;
        case HashAlgorithm::sha256:
            hmac_sha256_set_key(&state_->sha256, key.size(), key.data());
            break;
        case HashAlgorithm::sha512:
            hmac_sha512_set_key(&state_->sha512, key.size(), key.data());
            break;
    }
}

Hmac::~Hmac() {
    OPENSSL_cleanse(state_.get(), sizeof(State));
}

HmacDigest Hmac::digest(ByteView message) {
    HmacDigest result;
    switch (state_->algorithm) {
        case HashAlgorithm::sha1:
            result.size = SHA1_DIGEST_SIZE;
            hmac_sha1_update(&state_->sha1, message.size(), message.data());
            hmac_sha1_digest(&state_->sha1, result.size, result.bytes.data());
            break;
        case HashAlgorithm::sha256:
            result.size = SHA256_DIGEST_SIZE;
            hmac_sha256_update(&state_->sha256, message.size(), message.data());
            hmac_sha256_digest(&state_->sha256, result.size, result.bytes.data());
            break;
        case HashAlgorithm::sha512:
            result.size = SHA512_DIGEST_SIZE;
            hmac_sha512_update(&state_->sha512, message.size(), message.data());
            hmac_sha512_digest(&state_->sha512, result.size, result.bytes.data());
            break;
    }
    return result;
}

}  // namespace quorl
