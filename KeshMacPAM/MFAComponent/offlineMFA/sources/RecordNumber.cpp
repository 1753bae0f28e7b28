#include "RecordNumber.h"

#include <charconv>

namespace quorl {
namespace {

// A longer text would not fit 64 bits.
constexpr std::size_t mostDigits = 18;

std::optional<std::int64_t> fromText(const std::string& text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    if (text.size() > mostDigits || text.starts_with('-') ||
        std::from_chars(text.data(), end, number).ptr != end || text.empty())
        return std::nullopt;
    return number;
}

}  // namespace

std::optional<std::int64_t> recordNumber(const Value& data, std::string_view key) {
    const Value* value = member(data, key);
    if (!value)
        return std::nullopt;
    if (value->is_string())
        return fromText(value->get_ref<const std::string&>());
    const bool negative = value->is_number_float()      ? value->get<double>() < 0
                          : value->is_number_unsigned() ? false
                                                        : toInteger(*value) < 0;
    if (!value->is_number() || negative)
        return std::nullopt;
    return toInteger(*value);
}

}  // namespace quorl
