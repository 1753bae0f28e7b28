#include "ServerAddress.h"

#include "CommonUtils.h"
#include "ConfigParser.h"
#include "Handle.h"
#include "Log.h"
#include "Utf8.h"

#include <arpa/inet.h>
#include <unicode/uidna.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace quorl {
namespace {

using NameRules = Handle<UIDNA, uidna_close>;

bool isAddress(int family, const std::string& text) {
    in6_addr address{};
    return inet_pton(family, text.c_str(), &address) == 1;
}

bool isLabel(std::string_view label) {
    constexpr std::string_view letters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
    return !label.empty() && label.size() <= 63 && label.find_first_not_of(letters) == label.npos;
}

bool isName(std::string_view name) {
    if (name.ends_with('.'))
        name.remove_suffix(1);
    if (name.size() > 253)
        return false;
    for (;;) {
        const std::size_t dot = name.find('.');
        if (!isLabel(name.substr(0, dot)))
            return false;
        if (dot == name.npos)
            return true;
        name.remove_prefix(dot + 1);
    }
}

std::optional<std::string> punycode(std::string_view name) {
    UErrorCode error = U_ZERO_ERROR;
    const NameRules rules(uidna_openUTS46(UIDNA_NONTRANSITIONAL_TO_ASCII, &error));
    UIDNAInfo info = UIDNA_INFO_INITIALIZER;
    std::array<char, 256> out;
    const std::int32_t length =
        uidna_nameToASCII_UTF8(rules.get(), name.data(), static_cast<std::int32_t>(name.size()),
                               out.data(), static_cast<std::int32_t>(out.size()), &info, &error);
    if (U_FAILURE(error) || info.errors != 0 || length > static_cast<std::int32_t>(out.size()))
        return std::nullopt;
    return std::string(out.data(), static_cast<std::size_t>(length));
}

std::optional<std::string> portNumber(const std::string& text) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0)
        return std::nullopt;
    return std::to_string(port);
}

bool isContextPath(std::string_view path) {
    return path.empty() || (path.front() == '/' && isUtf8(path) &&
                            std::none_of(path.begin(), path.end(), [](unsigned char c) {
                                return c <= 0x20 || c == 0x7f || c == '?' || c == '#' || c == '\\';
                            }));
}

}  // namespace

std::optional<std::string> asciiHost(std::string_view host) {
    const std::string text(host);
    if (isAddress(AF_INET6, text))
        return "[" + text + "]";
    if (text.starts_with('[') && text.ends_with(']') &&
        isAddress(AF_INET6, text.substr(1, text.size() - 2)))
        return text;
    const auto name = isAscii(text) ? std::optional(text) : punycode(text);
    return name && isName(*name) ? name : std::nullopt;
}

std::optional<ServerAddress> serverAddress(const Value& config) {
    const std::string server = configText(config, "SERVERNAME");
    const std::string port = configText(config, "PORTNUMBER");
    if (server.empty() || port.empty())
        return std::nullopt;
    const auto host = asciiHost(server);
    const auto number = portNumber(port);
    std::string contextPath = configText(config, "CONTEXT_PATH");
    if (!host)
        logLine("serverAddress : SERVERNAME is neither a host name nor an address");
    if (!number)
        logLine("serverAddress : PORTNUMBER is no number from 1 to 65535");
    if (!isContextPath(contextPath))
        logLine("serverAddress : CONTEXT_PATH is no path that begins with a slash");
    else if (host && number)
        return ServerAddress{*host, *number, std::move(contextPath)};
    return std::nullopt;
}

std::string encodeBehindServer(std::string_view url) {
    const std::size_t scheme = url.find("://");
    const std::size_t server = scheme == url.npos ? 0 : scheme + 3;
    const std::size_t path = std::min(url.find_first_of("/?#", server), url.size());
    return std::string(url.substr(0, path)) + encodeURLQuery(url.substr(path));
}

}  // namespace quorl
