#pragma once

#include "Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// The instant as "EEE, dd MMM yyyy HH:mm:ss Z" in English and UTC ("Sun, 15 Nov 2026 00:28:11
/// +0000"), whatever the machine's language and zone.
std::string getCurrentUTCDate(const Clock& clock);

/// Milliseconds since 1970-01-01T00:00:00Z, truncated towards zero.
std::int64_t getCurrentTimeInMillis(const Clock& clock);

/// Text after the last "."; nothing when there is none.
std::optional<std::string> getExtensionFromFileName(std::string_view fileName);

/// Value of the key in a "name1=value1||name2=value2" response; "" when the key or a value is
/// absent, nothing without a response.
std::optional<std::string> parseValueFromResponse(std::string_view key,
                                                  const std::optional<std::string>& response);

/// Percent-encodes everything but Unicode letters and digits and "-._~" (RFC 3986 escapes).
std::string urlEncode(std::string_view text);

/// Percent-encodes everything outside the URL-query allowed set; "%" is escaped again.
std::string encodeURLQuery(std::string_view text);

/// "https://" + server + ":" + port + context path + request path, logged.
std::string constructServerURL(std::string_view server, std::string_view port,
                               std::string_view contextPath, std::string_view requestPath);

}  // namespace quorl
