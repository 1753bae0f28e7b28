#pragma once

#include "Value.h"
#include "WebView.h"

#include <string>
#include <string_view>
#include <vector>

namespace quorl {

/// The configuration's "MAC_AGENT_HOST_EXCLUDE" split at commas: despite its name, what may be
/// opened beside the server.
std::vector<std::string> listedEntries(const Value& config);

/// The entry means a kind of address that has no host, such as "about:blank" or "javascript".
bool namesNoHost(std::string_view entry);

/// The entry as the engine writes addresses, in which it is looked for: in lower case, a name with
/// letters beyond ASCII as punycode.
std::string asAddressed(std::string_view entry);

/// Whether the web view may go to the URL: local files, and whatever holds an entry of the list or
/// the server's name in any letter case. That is a test of the whole URL, not of its host; but the
/// scheme is https, or the URL begins with an entry that means addresses without host.
NavigationDecision decideNavigation(std::string_view url, const Value& config);

/// The URL's scheme is "file".
bool isFileURL(std::string_view url);

}  // namespace quorl
