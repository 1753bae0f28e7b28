#pragma once

#include <string>
#include <string_view>

namespace quorl {

/// Tells pages that there is no built-in platform authenticator.
extern const std::string_view noPlatformAuthenticatorScript;

/// Takes the context menu from the page.
extern const std::string_view noContextMenuScript;

/// Hands the signed headers (a JSON text) to the page that asked for them.
std::string authHeaderResultScript(std::string_view json);

}  // namespace quorl
