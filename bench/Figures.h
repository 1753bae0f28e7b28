#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorl::bench {

/// The groups; each ends by an exception when nothing can be said.
void benchArchive(), benchHttps(), benchLaunch(), benchMessage(), benchOffline(), benchPam(),
    benchStore(), benchTotp();

/// What a figure is printed in, and how many of what was measured make one of it.
struct Unit {
    const char* name;
    double size = 1;
};
inline constexpr Unit ns{"ns"}, us{"us", 1e3}, ms{"ms", 1e6}, s{"s", 1e9}, MiB{"MiB"};

/// The value below which that share of the samples lies; 0.5 is the median.
inline double percentile(std::vector<double> samples, double share = 0.5) {
    std::sort(samples.begin(), samples.end());
    return samples[static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1))];
}

/// What a work took, and what the least that any such work must do took in the same run.
struct Samples {
    std::vector<double> ours = {};
    std::vector<double> floor = {};
};

/// Prints `figure<TAB>value<TAB>unit`.
inline void print(const std::string& figure, double value, Unit unit) {
    std::printf("%s\t%.4g\t%s\n", figure.c_str(), value / unit.size, unit.name);
    std::fflush(stdout);
}
/// A figure, its floor, and the ratio of the two.
inline void print(const std::string& figure, const Samples& samples, Unit unit,
                  double share = 0.5) {
    const double ours = percentile(samples.ours, share);
    const double floor = percentile(samples.floor, share);
    print(figure, ours, unit);
    print(figure + ".floor", floor, unit);
    print(figure + ".ratio", ours / floor, {"x"});
}

/// Nanoseconds since some fixed moment.
inline double now() {
    using Nanoseconds = std::chrono::duration<double, std::nano>;
    return Nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// How often two works take turns, how many samples each takes in its turn, and how many runs make
/// a sample.
struct Turns {
    int turns;
    int samples = 1;
    int runs = 1;
};

/// Nanoseconds that one run of each work takes. The works take turns after one to warm up: the
/// machine's drift hits both alike.
template <class Ours, class Floor>
Samples compare(Turns turns, Ours ours, Floor floor) {
    Samples samples;
    const auto measure = [&](auto& work, std::vector<double>& into) {
        for (int sample = 0; sample < turns.samples; ++sample) {
            const double start = now();
            for (int run = 0; run < turns.runs; ++run)
                work();
            into.push_back((now() - start) / turns.runs);
        }
    };
    for (int turn = 0; turn <= turns.turns; ++turn) {
        if (turn == 1)
            samples = {};
        measure(ours, samples.ours);
        measure(floor, samples.floor);
    }
    return samples;
}

/// What a work measured of itself, by name; a name may come more than once.
using Measured = std::multimap<std::string, double>;

/// The same for works that measure themselves.
template <class Ours, class Floor>
std::map<std::string, Samples> compareMeasured(int turns, Ours ours, Floor floor) {
    std::map<std::string, Samples> all;
    for (int turn = 0; turn <= turns; ++turn) {
        if (turn == 1)
            all.clear();
        for (const auto& [name, value] : ours())
            all[name].ours.push_back(value);
        for (const auto& [name, value] : floor())
            all[name].floor.push_back(value);
    }
    return all;
}

/// What is compared must be done right on both sides, or its figures say nothing: ends the group.
inline void expect(bool right, const char* what) {
    if (!right)
        throw std::runtime_error(what);
}

}  // namespace quorl::bench
