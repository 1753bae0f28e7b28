#include "RepeatedLines.h"

#include <functional>

namespace quorl {
namespace {

constexpr std::chrono::seconds window{1};
constexpr std::uint64_t mostPerWindow = 20;
// A loop repeats a handful of lines; what else comes in its second need not be remembered.
constexpr std::size_t mostRemembered = 1024;
constexpr std::size_t shownOfALine = 200;

}  // namespace

bool RepeatedLines::admits(std::string_view line, Time now) {
    if (lines_.empty())
        start_ = now;
    const std::size_t hash = std::hash<std::string_view>()(line);
    auto found = lines_.find(hash);
    if (found == lines_.end()) {
        if (lines_.size() == mostRemembered)
            return true;
        found = lines_.emplace(hash, Entry()).first;
    }
    Entry& entry = found->second;
    if (++entry.times <= mostPerWindow)
        return true;
    if (entry.line.empty())
        entry.line = line.substr(0, shownOfALine);
    return false;
}

std::vector<RepeatedLines::HeldBack> RepeatedLines::finished(Time now) {
    return now - start_ >= window ? all() : std::vector<HeldBack>();
}

std::vector<RepeatedLines::HeldBack> RepeatedLines::all() {
    std::vector<HeldBack> told;
    for (auto& [hash, entry] : lines_)
        if (entry.times > mostPerWindow)
            told.push_back({std::move(entry.line), entry.times - mostPerWindow});
    lines_.clear();
    return told;
}

}  // namespace quorl
