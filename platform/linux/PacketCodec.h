#pragma once

#include "Bytes.h"
#include "Port.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace quorl {

// One packet is one message, little-endian:
//
//   0   bytes 51 4B 4D 31
//   4   u32 message id
//   8   u32 number of components, 0 to 16
//   12  u32 0, reserved
//   16  per component: u32 length, then that many bytes; nothing follows the last
//
// The reply port is no part of the bytes: it travels beside them as a descriptor.

inline constexpr std::size_t maxPacketSize = 131'072;
inline constexpr std::size_t maxComponents = 16;

/// The bytes of a message; nothing when it has too many components or would be too long.
std::optional<Bytes> encodePacket(std::uint32_t msgid, std::span<const Bytes> components);

/// The message in the bytes, without a reply port; or, for the log, the rule that they break.
tl::expected<PortMessage, std::string_view> decodePacket(ByteView packet);

}  // namespace quorl
