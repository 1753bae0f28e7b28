#pragma once

#include "Bytes.h"
#include "Value.h"

#include <array>
#include <cstdint>
#include <string>

namespace quorl {

// For what a person typed or a server issued: overwritten as soon as it is no longer needed, so
// that it does not lie in memory until something else happens to take its place.

/// Overwrites the whole room that the text or the bytes have, and leaves them empty; a key is left
/// zero.
void wipe(std::string& text);
void wipe(Bytes& bytes);
void wipe(std::array<std::uint8_t, 32>& key);
/// Overwrites every text and all data inside the value, and leaves it null.
void wipe(Value& value);

/// Wipes a secret when the scope ends, on every way out of it.
template <class Secret>
class WipeAtExit {
  public:
    explicit WipeAtExit(Secret& secret) : secret_(secret) {}
    ~WipeAtExit() { wipe(secret_); }
    WipeAtExit(const WipeAtExit&) = delete;
    WipeAtExit& operator=(const WipeAtExit&) = delete;

  private:
    Secret& secret_;
};

}  // namespace quorl
