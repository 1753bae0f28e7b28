#include "ArgumentDefaults.h"

namespace quorl {

ArgumentDefaults::ArgumentDefaults(int argc, const char* const* argv) {
    for (int i = 1; i + 1 < argc; ++i) {
        const std::string_view word = argv[i];
        if (word.size() > 1 && word.front() == '-') {
            values_[std::string(word.substr(1))] = argv[i + 1];
            ++i;
        }
    }
}

std::optional<std::string> ArgumentDefaults::stringForKey(std::string_view key) const {
    const auto found = values_.find(key);
    if (found == values_.end())
        return std::nullopt;
    return found->second;
}

}  // namespace quorl
