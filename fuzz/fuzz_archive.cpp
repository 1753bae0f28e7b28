// What the archive reader takes, the writer must carry, and it must read back as the same value.
#include <cstdlib>

#include "KeyedArchive.h"

namespace {

// The one text that only a reader meets: the marker of nothing, stored as a value.
bool canBeWritten(const quorl::Value& value) {
    if (value.is_string())
        return value != "$null";
    if (value.is_object() && value.contains("$null"))
        return false;
    for (const quorl::Value& entry : value) {
        if (value.is_structured() && !canBeWritten(entry))
            return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = quorl::unarchive({data, size});
    if (!value || !canBeWritten(*value))
        return 0;
    const auto written = quorl::archive(*value);
    // Shared references may decode to more than an archive holds.
    if (written && quorl::unarchive(*written) != value)
        std::abort();
    return 0;
}
