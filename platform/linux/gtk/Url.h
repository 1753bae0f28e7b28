#pragma once

#include "GlibSupport.h"

#include <libsoup/soup.h>

#include <optional>
#include <string>

namespace quorl {

using ParsedURL = Handle<GUri, g_uri_unref>;

/// Nothing for what is no URL.
inline ParsedURL parseURL(const std::string& url) {
    return ParsedURL(
        g_uri_parse(url.c_str(), static_cast<GUriFlags>(SOUP_HTTP_URI_FLAGS), nullptr));
}

/// Scheme, host and port of the URL with the path "/"; nothing for one without a host.
inline std::optional<std::string> originOf(const std::string& url) {
    const ParsedURL parsed = parseURL(url);
    if (!parsed || !g_uri_get_host(parsed.get()) || !*g_uri_get_host(parsed.get()))
        return std::nullopt;
    const GCharHandle origin(g_uri_join(
        static_cast<GUriFlags>(SOUP_HTTP_URI_FLAGS), g_uri_get_scheme(parsed.get()), nullptr,
        g_uri_get_host(parsed.get()), g_uri_get_port(parsed.get()), "/", nullptr, nullptr));
    return origin.get();
}

}  // namespace quorl
