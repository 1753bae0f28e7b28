// What the archive reader takes, the writer must carry, and it must read back as the same value.
#include "KeyedArchive.h"

#include <cstdlib>

namespace {

// The one text that only a reader meets: the marker of nothing, stored as a value.
bool holdsMarker(const quorl::Value& value) {
    if (value.is_string())
        return value == "$null";
    if (value.is_object() && value.contains("$null"))
        return true;
    for (const quorl::Value& entry : value) {
        if (value.is_structured() && holdsMarker(entry))
            return true;
    }
    return false;
}

// Shared references may decode to more than an archive holds.
bool isSmall(const quorl::Value& value) {
    return quorl::description(value).text.size() < 20'000;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = quorl::unarchive({data, size});
    if (!value || holdsMarker(*value))
        return 0;
    const auto written = quorl::archive(*value);
    if (written ? quorl::unarchive(*written) != value : isSmall(*value))
        std::abort();
    return 0;
}
