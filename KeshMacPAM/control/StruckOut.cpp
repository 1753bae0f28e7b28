#include "StruckOut.h"

#include "Value.h"

#include <regex>

namespace quorl::control {

std::string struckOut(std::string_view line) {
    // Bounds what the expressions below have to look through.
    constexpr std::size_t longest = 2000;
    constexpr const char* struck = "<struck out>";
    static const std::regex named(
        R"re(((?:token|key|secret|code|otp|passw[a-z]*|authorization|cookie|signature)["']?\s*[=:]\s*)("[^"]*"|.+))re",
        std::regex::icase | std::regex::optimize);
    static const std::regex mixed(R"re((?=[A-Za-z+/_-]*[0-9])[A-Za-z0-9+/_-]{16,}=*)re");
    static const std::regex hardlyAWord(R"re([A-Za-z0-9+=_-]{32,})re");
    static const std::regex code(R"re(\b[0-9]{6,10}\b)re");
    std::string kept =
        std::regex_replace(std::string(line.substr(0, longest)), named, std::string("$1") + struck);
    for (const std::regex* word : {&mixed, &hardlyAWord, &code})
        kept = std::regex_replace(kept, *word, struck);
    return escapeControl(kept);
}

}  // namespace quorl::control
