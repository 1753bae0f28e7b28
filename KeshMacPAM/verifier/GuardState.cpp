#include "GuardState.h"

#include "BoundedJson.h"
#include "Value.h"

#include <algorithm>
#include <charconv>

namespace quorl {
namespace {

using namespace std::chrono;

constexpr int version = 1;
constexpr int codesToLock = 10;
constexpr minutes firstLock{1};
constexpr minutes longestLock{15};
// Less is what clocks are off by without anybody's doing.
constexpr hours turnedBack{24};

// A number of the file within its bounds; what breaks them was not written by us.
bool take(const Value& file, const char* key, std::int64_t least, std::int64_t most, auto store) {
    const Value* found = member(file, key);
    if (!found || !found->is_number_integer() ||
        (found->is_number_unsigned() && found->get<std::uint64_t>() > std::uint64_t(INT64_MAX)))
        return false;
    const auto number = found->get<std::int64_t>();
    if (number < least || number > most)
        return false;
    store(number);
    return true;
}

bool takeUsed(const Value& file, std::map<std::int64_t, std::int64_t>& used) {
    const Value* steps = member(file, "used");
    if (!steps || !steps->is_object())
        return false;
    for (const auto& [name, ignored] : steps->items()) {
        std::int64_t id = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
        if (error != std::errc() || end != name.data() + name.size() ||
            !take(*steps, name.c_str(), 0, INT64_MAX, [&](auto step) { used[id] = step; }))
            return false;
    }
    return true;
}

// Far from any overflow, and farther than any clock.
constexpr std::int64_t latest = std::int64_t{1} << 40;

}  // namespace

GuardState GuardState::damaged(Time now) {
    GuardState state;
    state.lockLength = firstLock;
    state.lockedUntil = now + firstLock;
    state.newest = now;
    return state;
}

GuardState GuardState::from(ByteView content, Time now) {
    const Value file = parseJSON(asText(content), {.bytes = 65'536, .depth = 3}).value_or(Value());
    GuardState state;
    const auto time = [](Time& to) { return [&to](auto number) { to = Time(Seconds(number)); }; };
    if (integerValue(file, "version") == version &&
        take(file, "wrong", 0, codesToLock, [&](auto n) { state.wrongInRow = int(n); }) &&
        take(file, "locks", 0, INT32_MAX, [&](auto n) { state.locksInRow = int(n); }) &&
        take(file, "lockLength", 0, Seconds(longestLock).count(),
             [&](auto n) { state.lockLength = Seconds(n); }) &&
        take(file, "lockedUntil", 0, latest, time(state.lockedUntil)) &&
        take(file, "newest", 0, latest, time(state.newest)) && takeUsed(file, state.used))
        return state;
    return damaged(now);
}

Bytes GuardState::bytes() const {
    Value steps = Value::object();
    for (const auto& [id, step] : used)
        steps[std::to_string(id)] = step;
    return toBytes(Value{{"version", version},
                         {"wrong", wrongInRow},
                         {"locks", locksInRow},
                         {"lockLength", lockLength.count()},
                         {"lockedUntil", lockedUntil.time_since_epoch().count()},
                         {"newest", newest.time_since_epoch().count()},
                         {"used", steps}}
                       .dump() +
                   "\n");
}

GuardState::Seconds GuardState::lockedFor(Time now) const {
    return std::clamp(lockedUntil - now, Seconds(0), lockLength);
}

GuardState::Time GuardState::limitTime(Time now) const {
    return now < newest - turnedBack ? newest : now;
}

bool GuardState::isUsed(std::int64_t authenticator, std::int64_t step) const {
    const auto found = used.find(authenticator);
    return found != used.end() && step <= found->second;
}

void GuardState::see(Time now) {
    newest = std::max(newest, now);
    lockedUntil = std::min(lockedUntil, now + lockLength);
}

void GuardState::noteWrong(Time now, int codes) {
    wrongInRow += codes;
    if (wrongInRow < codesToLock)
        return;
    wrongInRow = 0;
    lockLength = locksInRow == 0 ? Seconds(firstLock)
                                 : std::min<Seconds>(2 * lockLength, Seconds(longestLock));
    locksInRow = std::min(locksInRow, INT32_MAX - 1) + 1;
    lockedUntil = now + lockLength;
}

void GuardState::noteUsed(std::int64_t authenticator, std::int64_t step) {
    auto& newestStep = used[authenticator];
    newestStep = std::max(newestStep, step);
}

void GuardState::noteSuccess() {
    wrongInRow = 0;
    locksInRow = 0;
    lockLength = Seconds(0);
    lockedUntil = Time{};
}

void GuardState::trustClock(Time now) {
    newest = now;
}

}  // namespace quorl
