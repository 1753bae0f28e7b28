#pragma once

#include "Clock.h"

namespace quorl::test {

/// A clock that stands where it was set.
class TestClock final : public Clock {
  public:
    explicit TestClock(std::chrono::milliseconds sinceEpoch = {}) : now_(sinceEpoch) {}
    std::chrono::system_clock::time_point now() const override {
        return std::chrono::system_clock::time_point(now_);
    }
    void set(std::chrono::milliseconds sinceEpoch) { now_ = sinceEpoch; }
    void advance(std::chrono::milliseconds step) { now_ += step; }

  private:
    std::chrono::milliseconds now_;
};

}  // namespace quorl::test
