#pragma once

#include "Bytes.h"

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace quorl {

enum class HashAlgorithm { sha1, sha256, sha512 };

/// The algorithm of the exact name "SHA1", "SHA256" or "SHA512"; nothing for any other name.
std::optional<HashAlgorithm> hashAlgorithm(std::string_view name);

/// A digest in place: as many bytes as its algorithm gives (20, 32 or 64).
struct HmacDigest {
    std::array<std::uint8_t, 64> bytes{};
    std::size_t size = 0;
    ByteView view() const { return {bytes.data(), size}; }
};

/// HMAC (RFC 2104) under one key. The key is absorbed once, so that several messages under it (the
/// codes of a window) cost the messages alone. The key's state is wiped with the object.
class Hmac {
  public:
    Hmac(HashAlgorithm algorithm, ByteView key);
    ~Hmac();
    Hmac(const Hmac&) = delete;
    Hmac& operator=(const Hmac&) = delete;

    HmacDigest digest(ByteView message);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quorl
