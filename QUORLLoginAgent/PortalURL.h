#pragma once

#include "Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Path of the server's self-service page.
inline constexpr std::string_view selfServicePath = "/AgentPasswordSelfService.cc";

/// The page's URL under the configured server, percent-encoded as a whole ("%" included, so a path
/// must arrive unescaped); nothing when server name or port is not configured.
std::optional<std::string> portalURL(const Value& config, std::string_view path);

}  // namespace quorl
