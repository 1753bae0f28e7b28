#include "PageScripts.h"

#include <fmt/format.h>

namespace quorl {

const std::string_view noPlatformAuthenticatorScript =
    "window.PublicKeyCredential.isUserVerifyingPlatformAuthenticatorAvailable = function() { "
    "return "
    "Promise.resolve(false); };";

const std::string_view noContextMenuScript =
    "window.addEventListener('contextmenu', (event) => event.preventDefault());";

std::string authHeaderResultScript(std::string_view json) {
    return fmt::format("handleAuthHeaderResult({});", json);
}

}  // namespace quorl
