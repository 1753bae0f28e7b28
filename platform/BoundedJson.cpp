#include "BoundedJson.h"

#include <algorithm>

namespace quorl {

std::optional<Value> parseJSON(std::string_view text, const JsonLimits& limits) {
    if (text.size() > limits.bytes || jsonNesting(text) > limits.depth)
        return std::nullopt;
    Value parsed = Value::parse(text, nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded())
        return std::nullopt;
    return parsed;
}

int jsonNesting(std::string_view text) {
    int depth = 0;
    int deepest = 0;
    bool inText = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inText) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inText = false;
        } else if (c == '"') {
            inText = true;
        } else if (c == '{' || c == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (c == '}' || c == ']') {
            --depth;
        }
    }
    return deepest;
}

}  // namespace quorl
