#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quorl {

/// Keeps a loop from filling the log: of the same line no more than 20 are written in a second; the
/// rest is held back and told of by a count. Seconds follow each other from the first line on. Not
/// for several threads at once.
class RepeatedLines {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// The beginning of a line, and how often it was held back.
    struct HeldBack {
        std::string line;
        std::uint64_t times = 0;
    };

    /// Whether the line is to be written now. Ask for finished() first.
    bool admits(std::string_view line, Time now);

    /// What was held back in a second that is over; told once.
    std::vector<HeldBack> finished(Time now);

    /// What was held back until now; told once.
    std::vector<HeldBack> all();

  private:
    struct Entry {
        std::uint64_t times = 0;
        std::string line;  ///< once held back
    };

    Time start_;
    std::unordered_map<std::size_t, Entry> lines_;
};

}  // namespace quorl
