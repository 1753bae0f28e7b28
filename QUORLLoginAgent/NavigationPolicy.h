#pragma once

#include "Value.h"
#include "WebView.h"

#include <string>
#include <string_view>
#include <vector>

namespace quorl {

/// The fragments that a URL may hold to be opened: the configuration's "MAC_AGENT_HOST_EXCLUDE"
/// split at commas, and its server name in lower case.
std::vector<std::string> navigationAllowList(const Value& config);

/// Whether the web view may go to the URL: local files, and whatever holds an entry of the list in
/// any letter case. It is a test of the whole URL, not of its host.
NavigationDecision decideNavigation(std::string_view url, const Value& config);

/// The URL's scheme is "file".
bool isFileURL(std::string_view url);

}  // namespace quorl
