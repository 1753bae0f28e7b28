#include "FactorSteps.h"

#include <limits>
#include <utility>

namespace quorl {

FactorSteps::FactorSteps(std::int64_t factors, Methods methods)
    : owed_(factors), methods_(std::move(methods)) {}

FactorSteps::Next FactorSteps::next() {
    if (!methods_.mandatory.empty()) {
        current_ = methods_.mandatory.front();
        std::erase(methods_.mandatory, current_);
        return Next::mandatory;
    }
    if (std::cmp_not_equal(methods_.optional.size(), owed_))
        return Next::choice;
    // No method at all where nothing is owed: a step that verifies nothing, not a crash.
    current_ = methods_.optional.empty() ? 0 : methods_.optional.front();
    if (!methods_.optional.empty())
        methods_.optional.erase(methods_.optional.begin());
    return Next::optional;
}

void FactorSteps::choose(std::int64_t authId) {
    current_ = authId;
    std::erase(methods_.optional, authId);
}

void FactorSteps::countVerified() {
    // A record may hold the smallest of all numbers.
    if (owed_ != std::numeric_limits<std::int64_t>::min())
        --owed_;
}

}  // namespace quorl
