#include "NavigationPolicy.h"

#include "ConfigParser.h"

#include <algorithm>

namespace quorl {
namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lowerCase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), lower);
    return out;
}

}  // namespace

std::vector<std::string> navigationAllowList(const Value& config) {
    std::vector<std::string> list;
    const std::string entries = configText(config, "MAC_AGENT_HOST_EXCLUDE");
    for (std::size_t start = 0; start <= entries.size();) {
        const std::size_t end = std::min(entries.find(',', start), entries.size());
        list.push_back(entries.substr(start, end - start));
        start = end + 1;
    }
    list.push_back(lowerCase(configText(config, "SERVERNAME")));
    return list;
}

NavigationDecision decideNavigation(std::string_view url, const Value& config) {
    if (isFileURL(url))
        return NavigationDecision::allow;
    const std::string whole = lowerCase(url);
    for (const std::string& entry : navigationAllowList(config)) {
        if (!entry.empty() && whole.find(lowerCase(entry)) != std::string::npos)
            return NavigationDecision::allow;
    }
    return NavigationDecision::cancel;
}

bool isFileURL(std::string_view url) {
    return lowerCase(url.substr(0, 5)) == "file:";
}

}  // namespace quorl
