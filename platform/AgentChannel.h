#pragma once

#include <cstddef>
#include <cstdint>

namespace quorl {

// What both ends of the local channel agree on beside the packets themselves.

/// The name under which the relay is found.
inline constexpr const char* bootstrapName = "com.tav.quorl.QUORLLoginAgent";

/// The longest component that a message with nothing else in it can carry. What is longer cannot be
/// sent at all.
inline constexpr std::size_t longestComponent = 131'052;

/// What a port message says. Ids that are not listed are ignored by their receivers.
struct MessageId {
    enum Id : std::uint32_t {
        request = 8888,            ///< client to relay: archived request, reply port required
        result = 8889,             ///< application to relay to client: archived result
        checkIn = 10001,           ///< relay to application: nothing but the relay's port
        forwardedRequest = 10002,  ///< relay to application: the request's bytes unchanged
        withdrawn = 10003,         ///< relay to application: the requester has gone
    };
};

}  // namespace quorl
