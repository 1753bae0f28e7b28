#include "Redaction.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace quorl {
namespace {

constexpr std::array<std::string_view, 4> secrets = {"POST_DATA", "REQUEST_HEADERS", "KEY",
                                                     "OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN"};

}  // namespace

std::string lengthOf(const Value& secret) {
    if (secret.is_string())
        return fmt::format("<{} bytes>", secret.get_ref<const std::string&>().size());
    if (secret.is_binary())
        return fmt::format("<{} bytes>", secret.get_binary().size());
    if (secret.is_structured())
        return fmt::format("<{} entries>", secret.size());
    return secret.is_null() ? "(null)" : "<1 value>";
}

LogText redactedDescription(const Value& dictionary) {
    if (!dictionary.is_object())
        return description(dictionary);
    Value shown = Value::object();
    for (const auto& [key, value] : dictionary.items())
        shown[key] = std::find(secrets.begin(), secrets.end(), key) == secrets.end()
                         ? value
                         : Value(lengthOf(value));
    return description(shown);
}

std::string redactedAddress(std::string_view url) {
    const std::size_t end = url.find_first_of("?#");
    return std::string(url.substr(0, end)) + (end == url.npos ? "" : "?…");
}

}  // namespace quorl
