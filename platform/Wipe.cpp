#include "Wipe.h"

#include <string.h>

namespace quorl {

// The whole capacity, since a text that shrank leaves its end behind.
void wipe(std::string& text) {
    text.resize(text.capacity());
    explicit_bzero(text.data(), text.size());
    text.clear();
}

void wipe(Bytes& bytes) {
    bytes.resize(bytes.capacity());
    // An empty one may have no room at all, and no place to name.
    if (!bytes.empty())
        explicit_bzero(bytes.data(), bytes.size());
    bytes.clear();
}

void wipe(std::array<std::uint8_t, 32>& key) {
    explicit_bzero(key.data(), key.size());
}

void wipe(Value& value) {
    if (auto* text = value.get_ptr<std::string*>())
        wipe(*text);
    else if (auto* data = value.get_ptr<Value::binary_t*>())
        wipe(static_cast<Bytes&>(*data));
    else if (value.is_structured())
        for (Value& item : value)
            wipe(item);
    value = nullptr;
}

}  // namespace quorl
