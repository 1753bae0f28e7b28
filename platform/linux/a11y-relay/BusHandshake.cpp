#include "BusHandshake.h"

#include <utility>

namespace quorl {
namespace {

constexpr std::size_t longestLine = 512;
constexpr int mostLines = 16;
constexpr std::string_view lineEnd = "\r\n";

// The first word of a line and what stands behind it.
std::pair<std::string_view, std::string_view> split(std::string_view line) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos)
        return {line, {}};
    return {line.substr(0, blank), line.substr(blank + 1)};
}

}  // namespace

BusHandshake::State BusHandshake::take(std::string_view bytes) {
    input_ += bytes;
    if (!greeted_ && !input_.empty()) {
        if (input_.front() != '\0')
            return State::refused;
        input_.erase(0, 1);
        greeted_ = true;
    }
    for (;;) {
        const auto end = input_.find(lineEnd);
        if (end == std::string::npos)
            return input_.size() > longestLine ? State::refused : State::talking;
        if (end > longestLine || ++lines_ > mostLines)
            return State::refused;
        const std::string line = input_.substr(0, end);
        input_.erase(0, end + lineEnd.size());
        if (const State state = answer(line); state != State::talking)
            return state;
    }
}

BusHandshake::State BusHandshake::answer(std::string_view line) {
    const auto [command, rest] = split(line);
    if (command == "BEGIN")
        return admitted_ ? State::begun : State::refused;
    if (command == "AUTH" && !admitted_) {
        const auto [mechanism, identity] = split(rest);
        awaitsIdentity_ = mechanism == "EXTERNAL" && identity.empty();
        if (mechanism != "EXTERNAL")
            say("REJECTED EXTERNAL");
        else if (awaitsIdentity_)
            say("DATA");
        else
            admit();
    } else if (command == "DATA" && awaitsIdentity_) {
        admit();
    } else if (command == "CANCEL" || (command == "ERROR" && !admitted_)) {
        awaitsIdentity_ = admitted_ = false;
        say("REJECTED EXTERNAL");
    } else {
        say("ERROR");
    }
    return State::talking;
}

void BusHandshake::say(std::string_view line) {
    reply_ += line;
    reply_ += lineEnd;
}

void BusHandshake::admit() {
    awaitsIdentity_ = false;
    admitted_ = true;
    say("OK " + guid_);
}

}  // namespace quorl
