#pragma once

#include <cstdint>

namespace quorl {

/// The name under which the relay is found.
inline constexpr const char* bootstrapName = "com.tav.quorl.QUORLLoginAgent";

/// What a port message says. Ids that are not listed are ignored by their receivers.
struct MessageId {
    enum Id : std::uint32_t {
        request = 8888,            ///< client to relay: archived request, reply port required
        result = 8889,             ///< application to relay to client: archived result
        checkIn = 10001,           ///< relay to application: nothing but the relay's port
        forwardedRequest = 10002,  ///< relay to application: the request's bytes unchanged
    };
};

}  // namespace quorl
