#include "Clock.h"

namespace quorl {
namespace {

class SystemClock final : public Clock {
  public:
    std::chrono::system_clock::time_point now() const override {
        return std::chrono::system_clock::now();
    }
};

}  // namespace

const Clock& systemClock() {
    static const SystemClock clock;
    return clock;
}

}  // namespace quorl
