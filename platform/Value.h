#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// The dictionary type of the whole system: JSON values, where data is the binary kind.
using Value = nlohmann::json;

/// Text that is ready for the log: descriptions keep their line breaks.
struct LogText {
    std::string text;
};

/// The member of a dictionary, or null when the value is no dictionary or lacks the key.
/// The pointer lives as long as the dictionary is unchanged.
const Value* member(const Value& dictionary, std::string_view key);

/// The text under the key; nothing when it is absent or of another kind.
std::optional<std::string> stringValue(const Value& dictionary, std::string_view key);

/// The number under the key truncated towards zero and held within 64 bits; a boolean counts as
/// 0 or 1; absent or any other kind is 0.
std::int64_t integerValue(const Value& dictionary, std::string_view key);

/// The same rule for a value by itself.
std::int64_t toInteger(const Value& value);

/// Property-list description, as the log shows a value: dictionaries and arrays in braces and
/// parentheses with lines indented by four blanks, texts inside them quoted where they hold more
/// than letters, digits and `_ . / $`. Control characters and quotes are escaped, so that no
/// value can forge a log line. A null is "(null)". Ends after 4 KiB. A text at the top stands as it
/// is, control characters escaped.
LogText description(const Value& value);

/// The text with its control characters and what separates lines or paragraphs escaped (`\n`,
/// `\U001b`, `\U2028`), bytes that are no UTF-8 as `\xff`, for one line of the log.
std::string escapeControl(std::string_view text);

}  // namespace quorl
