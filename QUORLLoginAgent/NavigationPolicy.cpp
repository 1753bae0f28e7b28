#include "NavigationPolicy.h"

#include "AsciiCase.h"
#include "ConfigParser.h"
#include "ServerAddress.h"
#include "Utf8.h"

#include <algorithm>
#include <array>

namespace quorl {

std::vector<std::string> listedEntries(const Value& config) {
    std::vector<std::string> list;
    const std::string entries = configText(config, "MAC_AGENT_HOST_EXCLUDE");
    for (std::size_t start = 0; start <= entries.size();) {
        const std::size_t end = std::min(entries.find(',', start), entries.size());
        list.push_back(entries.substr(start, end - start));
        start = end + 1;
    }
    return list;
}

bool namesNoHost(std::string_view entry) {
    constexpr std::array schemes = {"about:", "javascript", "data:", "blob:"};
    const std::string whole = lowerCase(entry);
    return std::ranges::any_of(schemes,
                               [&whole](const char* scheme) { return whole.starts_with(scheme); });
}

std::string asAddressed(std::string_view entry) {
    // Entries in ASCII are fragments of any kind and stay as they are.
    const auto name = isAscii(entry) ? std::nullopt : asciiHost(entry);
    return lowerCase(name ? *name : entry);
}

NavigationDecision decideNavigation(std::string_view url, const Value& config) {
    if (isFileURL(url))
        return NavigationDecision::allow;
    const std::string whole = lowerCase(url);
    const bool isHttps = whole.starts_with("https:");
    std::vector<std::string> entries = listedEntries(config);
    entries.push_back(configText(config, "SERVERNAME"));
    for (const std::string& listed : entries) {
        const std::string entry = asAddressed(listed);
        if (entry.empty() || whole.find(entry) == std::string::npos)
            continue;
        if (isHttps || (namesNoHost(entry) && whole.starts_with(entry)))
            return NavigationDecision::allow;
    }
    return NavigationDecision::cancel;
}

bool isFileURL(std::string_view url) {
    return lowerCase(url.substr(0, 5)) == "file:";
}

}  // namespace quorl
