#pragma once

#include <chrono>

namespace quorl {

/// The wall clock, as codes, limits and signatures read it. Tests set their own.
class Clock {
  public:
    virtual ~Clock() = default;
    virtual std::chrono::system_clock::time_point now() const = 0;
};

/// The machine's clock.
const Clock& systemClock();

}  // namespace quorl
