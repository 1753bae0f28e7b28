#include "Texts.h"

#include "Localization.h"
#include "Utf8.h"
#include "Value.h"

namespace quorl {

std::string Texts::get(std::string_view key, const Replacements& replacements) const {
    std::string text = getLocalizedString(key, localeId_);
    for (const auto& [name, value] : replacements) {
        const std::string mark = "%" + std::string(name) + "%";
        if (const auto at = text.find(mark); at != std::string::npos)
            text.replace(at, mark.size(), harmless(value));
    }
    return text;
}

std::string harmless(std::string_view text, std::size_t most) {
    if (!isUtf8(text))
        return "?";
    std::string escaped = escapeControl(text);
    if (escaped.size() <= most)
        return escaped;
    while (most > 0 && (static_cast<unsigned char>(escaped[most]) & 0xC0) == 0x80)
        --most;
    return escaped.substr(0, most) + "…";
}

}  // namespace quorl
