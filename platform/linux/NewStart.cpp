#include "NewStart.h"

#include "Log.h"

#include <errno.h>
#include <fmt/format.h>
#include <linux/close_range.h>
#include <stdlib.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <string_view>

namespace quorl {
namespace {

constexpr int mostNewStarts = 5;
constexpr const char* countVariable = "QUORL_NEW_STARTS";

// What is no number of ours counts as too many.
int newStarts() {
    const char* text = secure_getenv(countVariable);
    if (!text)
        return 0;
    const std::string_view digits = text;
    int count = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), count);
    return error == std::errc() && end == digits.end() && count >= 0 ? count : mostNewStarts;
}

}  // namespace

NewStart::NewStart(char** arguments) : arguments_(arguments) {
    const std::string counted = std::string(countVariable) + "=";
    for (char** entry = environ; *entry; ++entry) {
        if (!std::string_view(*entry).starts_with(counted))
            environment_.emplace_back(*entry);
    }
    environment_.push_back(counted + std::to_string(newStarts() + 1));
}

void NewStart::begin(const HeldName& name) const {
    // Whatever a library left open without saying so.
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    std::string nameEntry;
    std::vector<char*> environment;
    if (name.listener) {
        nameEntry = bequeath(name);
        environment.push_back(nameEntry.data());
    }
    for (const std::string& entry : environment_)
        environment.push_back(const_cast<char*>(entry.c_str()));
    environment.push_back(nullptr);
    execve("/proc/self/exe", arguments_, environment.data());
    logLine("NewStart : {}", std::strerror(errno));
}

bool mayStartAnew() {
    return newStarts() < mostNewStarts;
}

}  // namespace quorl
