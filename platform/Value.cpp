#include "Value.h"

#include "Utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace quorl {
namespace {

constexpr std::size_t largestDescription = 4096;

// Line and paragraph separator, and the C1 controls with their next-line, start a line of their own
// in some viewers.
bool isControl(std::int32_t point) {
    return point < 0x20 || (point >= 0x7f && point < 0xa0) || point == 0x2028 || point == 0x2029;
}

bool isBareWord(std::string_view text) {
    if (text.empty())
        return false;
    for (const char c : text) {
        const bool letterOrDigit =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!letterOrDigit && std::string_view("_./$").find(c) == std::string_view::npos)
            return false;
    }
    return true;
}

std::string quotedWord(std::string_view text) {
    if (text.size() <= largestDescription && isBareWord(text))
        return std::string(text);
    std::string out = "\"";
    for (const char c : text.substr(0, largestDescription)) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return escapeControl(out + "\"");
}

std::string scalar(const Value& value) {
    switch (value.type()) {
        case Value::value_t::null:
            return "(null)";
        case Value::value_t::boolean:
            return value.get<bool>() ? "1" : "0";
        case Value::value_t::number_integer:
            return std::to_string(value.get<std::int64_t>());
        case Value::value_t::number_unsigned:
            return std::to_string(value.get<std::uint64_t>());
        case Value::value_t::number_float:
            return fmt::format("{}", value.get<double>());
        case Value::value_t::binary:
            return fmt::format("<{} bytes>", value.get_binary().size());
        case Value::value_t::string:
        case Value::value_t::object:
        case Value::value_t::array:
        case Value::value_t::discarded:
            break;
    }
    return "";
}

// Written into one growing text; the depth bound keeps hostile nesting off the stack, and nothing
// is added to a text that will be cut anyway.
void describe(const Value& value, int depth, std::string& out) {
    constexpr int deepest = 64;
    if (out.size() > largestDescription)
        return;
    const std::string indent(static_cast<std::size_t>(depth) * 4, ' ');
    if (value.is_string()) {
        out += quotedWord(value.get_ref<const std::string&>());
    } else if (value.is_structured() && depth >= deepest) {
        out += value.is_object() ? "{...}" : "(...)";
    } else if (value.is_object()) {
        out += "{\n";
        for (const auto& [key, entry] : value.items()) {
            if (out.size() > largestDescription)
                return;
            out += indent + "    " + quotedWord(key) + " = ";
            describe(entry, depth + 1, out);
            out += ";\n";
        }
        out += indent + "}";
    } else if (value.is_array()) {
        out += "(\n";
        for (std::size_t i = 0; i < value.size() && out.size() <= largestDescription; ++i) {
            out += indent + "    ";
            describe(value[i], depth + 1, out);
            out += i + 1 < value.size() ? ",\n" : "\n";
        }
        out += indent + ")";
    } else {
        out += scalar(value);
    }
}

}  // namespace

const Value* member(const Value& dictionary, std::string_view key) {
    if (!dictionary.is_object())
        return nullptr;
    const auto found = dictionary.find(key);
    return found == dictionary.end() ? nullptr : &*found;
}

std::optional<std::string> stringValue(const Value& dictionary, std::string_view key) {
    const Value* value = member(dictionary, key);
    if (!value || !value->is_string())
        return std::nullopt;
    return value->get<std::string>();
}

std::int64_t toInteger(const Value& value) {
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
    if (value.is_boolean())
        return value.get<bool>() ? 1 : 0;
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        return number > static_cast<std::uint64_t>(largest) ? largest
                                                            : static_cast<std::int64_t>(number);
    }
    if (value.is_number_integer())
        return value.get<std::int64_t>();
    if (value.is_number_float()) {
        const double number = value.get<double>();
        if (std::isnan(number))
            return 0;
        if (number >= static_cast<double>(largest))
            return largest;
        if (number <= static_cast<double>(smallest))
            return smallest;
        return static_cast<std::int64_t>(number);
    }
    return 0;
}

std::int64_t integerValue(const Value& dictionary, std::string_view key) {
    const Value* value = member(dictionary, key);
    return value ? toInteger(*value) : 0;
}

LogText description(const Value& value) {
    if (value.is_string())
        return {escapeControl(value.get_ref<const std::string&>())};
    std::string out;
    describe(value, 0, out);
    if (out.size() > largestDescription) {
        out.resize(startOfCharacter(out, largestDescription));
        out += "…";
    }
    return {out};
}

std::string escapeControl(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        const std::int32_t point = nextCodePoint(text, at);
        if (point < 0)
            out += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[at++]));
        else if (point == '\n')
            out += "\\n";
        else if (point == '\r')
            out += "\\r";
        else if (point == '\t')
            out += "\\t";
        else if (isControl(point))
            out += fmt::format("\\U{:04x}", point);
        else
            out += text.substr(start, at - start);
    }
    return out;
}

}  // namespace quorl
