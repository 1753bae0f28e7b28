#include "LoginPrograms.h"

#include <algorithm>
#include <array>

namespace quorl {
namespace {

template <std::size_t N>
bool isAmong(std::string_view service, const std::array<std::string_view, N>& names) {
    return std::find(names.begin(), names.end(), service) != names.end();
}

}  // namespace

bool showsAgentWindow(std::string_view service) {
    return isAmong<5>(service, {"lightdm", "sddm", "xdm", "lxdm", "greetd"});
}

bool showsErrorTexts(std::string_view service) {
    // Not sudo: it calls modules with PAM_SILENT unless its policy says otherwise.
    return isAmong<3>(service, {"login", "su", "su-l"});
}

bool replacesPrompts(std::string_view service) {
    return isAmong<2>(service, {"sudo", "sudo-i"});
}

}  // namespace quorl
