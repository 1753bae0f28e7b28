#pragma once

#include "Value.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace quorl {

/// Where log lines go: the descriptor stays its owner's, and open while it is named here. A file
/// that has grown to the largest size takes one more line, which says so, and then none.
struct LogDestination {
    int descriptor;
    std::int64_t largest = std::numeric_limits<std::int64_t>::max();
};

/// From here on lines go there instead of to standard error. What was held back goes to the former
/// destination first. Any thread.
void setLogDestination(const LogDestination& destination);

/// Writes one line in a single write, so that lines of several threads never mix: local date and
/// time with milliseconds, process name, process and thread identifiers, the message, a newline.
/// Of a line that comes more than 20 times in a second the rest is counted, and the count written
/// with the first line after that second. Any thread. What cannot be written is lost.
void writeLogLine(std::string_view message);

/// Writes the counts of what is held back at once, and begins a new second. Any thread.
void tellRepeatedLines();

namespace detail {
/// Texts from outside are escaped, so that none of them can start a log line of its own.
inline std::string logArgument(std::string_view text) {
    return escapeControl(text);
}
inline std::string logArgument(const std::string& text) {
    return escapeControl(text);
}
inline std::string logArgument(const char* text) {
    return escapeControl(text);
}
inline std::string logArgument(const std::optional<std::string>& text) {
    return text ? escapeControl(*text) : "(null)";
}
inline std::string logArgument(std::nullopt_t) {
    return "(null)";
}
inline std::string logArgument(const LogText& text) {
    return text.text;
}
inline std::string logArgument(const Value& value) {
    return description(value).text;
}
template <class T>
requires std::is_arithmetic_v<T> T logArgument(T value) {
    return value;
}
template <class T>
using LogArgument = decltype(logArgument(std::declval<const T&>()));
}  // namespace detail

/// Logs one message. Texts are escaped, values are described, nothing is "(null)".
template <class... Args>
void logLine(fmt::format_string<detail::LogArgument<std::decay_t<Args>>...> format,
             const Args&... args) {
    writeLogLine(fmt::format(format, detail::logArgument(args)...));
}

}  // namespace quorl
