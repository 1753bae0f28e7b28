#include "AnswerPolicy.h"

#include "AsciiCase.h"
#include "Bytes.h"
#include "ConfigParser.h"
#include "NavigationPolicy.h"
#include "ServerAddress.h"

#include <algorithm>

namespace quorl {
namespace {

// The path that a local address names; nothing for other addresses.
std::optional<std::string> filePath(std::string_view url) {
    constexpr std::string_view start = "file:///";
    if (lowerCase(url.substr(0, start.size())) != start)
        return std::nullopt;
    url = url.substr(start.size() - 1);
    url = url.substr(0, url.find_first_of("?#"));
    std::string path;
    while (!url.empty()) {
        const auto high = url.size() > 2 ? hexDigit(url[1]) : std::nullopt;
        const auto low = url.size() > 2 ? hexDigit(url[2]) : std::nullopt;
        if (url[0] == '%' && high && low) {
            path += static_cast<char>(*high << 4 | *low);
            url.remove_prefix(3);
        } else {
            path += url[0];
            url.remove_prefix(1);
        }
    }
    return path;
}

}  // namespace

std::optional<std::string> httpsHost(std::string_view url) {
    constexpr std::string_view start = "https://";
    if (lowerCase(url.substr(0, start.size())) != start)
        return std::nullopt;
    url.remove_prefix(start.size());
    url = url.substr(0, url.find_first_of("/\\?#"));
    if (const auto user = url.rfind('@'); user != url.npos)
        url.remove_prefix(user + 1);
    const auto bracket = url.rfind(']');
    if (const auto port = url.rfind(':');
        port != url.npos && (bracket == url.npos || port > bracket))
        url = url.substr(0, port);
    return url.empty() ? std::nullopt : std::optional(lowerCase(url));
}

Speaker speakerOf(std::string_view pageURL, const Value& config,
                  const std::optional<std::string>& offlinePage) {
    if (const auto path = filePath(pageURL))
        return path == offlinePage ? Speaker::offlinePage : Speaker::stranger;
    const auto host = httpsHost(pageURL);
    if (!host)
        return Speaker::stranger;
    const auto isIts = [&host](const std::string& entry) {
        return !entry.empty() && !namesNoHost(entry) &&
               host->find(asAddressed(entry)) != std::string::npos;
    };
    const auto server = asciiHost(configText(config, "SERVERNAME"));
    const bool known = (server && asciiHost(*host) == lowerCase(*server)) ||
                       std::ranges::any_of(listedEntries(config), isIts);
    return known ? Speaker::server : Speaker::stranger;
}

bool maySay(PageMethod method, Speaker speaker, bool offlineFlowRuns) {
    const bool ownPage = speaker == Speaker::offlinePage && offlineFlowRuns;
    switch (method) {
        case PageMethod::buttonOK:
        case PageMethod::buttonChoose:
            return ownPage;
        case PageMethod::authorizationHeader:
            return speaker == Speaker::server;
        case PageMethod::result:
            return speaker == Speaker::server || ownPage;
    }
    return false;
}

}  // namespace quorl
