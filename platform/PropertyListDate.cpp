#include "PropertyListDate.h"

#include <fmt/chrono.h>

#include <cmath>

namespace quorl {

std::optional<std::string> propertyListDateText(double seconds) {
    constexpr double year2001 = 978307200;
    constexpr double earliest = -377705116800;
    constexpr double latest = 253402300799;
    const double epoch = std::floor(seconds + year2001);
    if (!(epoch >= earliest && epoch <= latest))
        return std::nullopt;
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(epoch)));
}

}  // namespace quorl
