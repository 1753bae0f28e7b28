#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What reader and writer of keyed archives agree on.
namespace quorl::keyedArchive {

inline constexpr int deepestObject = 32;
inline constexpr int mostValues = 20'000;
inline constexpr std::size_t largestArchive = 1 << 20;
inline constexpr std::int64_t archiverVersion = 100000;
inline constexpr std::string_view archiverName = "NSKeyedArchiver";
inline constexpr std::string_view nullMarker = "$null";

}  // namespace quorl::keyedArchive
