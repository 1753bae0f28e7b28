#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace quorl::bench {

/// Prints figures as they are measured: `figure<TAB>value<TAB>unit`.
class Figures {
  public:
    void add(const std::string& figure, double value, const std::string& unit) {
        std::printf("%s\t%.4g\t%s\n", figure.c_str(), value, unit.c_str());
        std::fflush(stdout);
    }
    /// A figure, its floor measured in the same run, and the ratio of the two.
    void add(const std::string& figure, double value, double floor, const std::string& unit) {
        add(figure, value, unit);
        add(figure + ".floor", floor, unit);
        add(figure + ".ratio", value / floor, "x");
    }
};

/// The value below which that share of the samples lies; 0.5 is the median.
inline double percentile(std::vector<double> samples, double share) {
    std::sort(samples.begin(), samples.end());
    const auto last = static_cast<double>(samples.size() - 1);
    return samples[static_cast<std::size_t>(share * last)];
}
inline double median(std::vector<double> samples) {
    return percentile(std::move(samples), 0.5);
}

/// How long the work takes once, in nanoseconds.
inline double nanoseconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::steady_clock::now() - start)
                                   .count());
}

/// Medians in nanoseconds of one run of each of two works, measured in turn after a warm-up,
/// `batch` runs to a sample: the machine's drift hits both alike.
struct Pair {
    double work;
    double floor;
};
inline Pair comparePair(const std::function<void()>& work, const std::function<void()>& floor,
                        int samples, int batch) {
    const auto timed = [batch](const std::function<void()>& body) {
        return nanoseconds([&] {
                   for (int i = 0; i < batch; ++i)
                       body();
               }) /
               batch;
    };
    timed(work);
    timed(floor);
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int i = 0; i < samples; ++i) {
        ours.push_back(timed(work));
        theirs.push_back(timed(floor));
    }
    return {median(ours), median(theirs)};
}

}  // namespace quorl::bench
