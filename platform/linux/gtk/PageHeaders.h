#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorl {

/// The header fields of a page request, on their way to the web process, whose extension puts them
/// into the request that goes out. They travel inside the request itself, sealed with a secret of
/// this run that pages never see, so that no page can have headers set for it.
struct PageHeaders {
    std::string load;  ///< tells one load from another
    std::vector<std::pair<std::string, std::string>> fields;
    bool operator==(const PageHeaders&) const = default;
};

/// The header that carries them on a request without a body.
inline constexpr const char* pageHeadersField = "X-Quorl-Page-Headers";

/// The content type that carries them on a request with a body.
std::string pageHeadersContentType(const std::string& sealed);

std::string sealPageHeaders(const PageHeaders& headers, std::string_view secret);

/// Opens what either form carries; nothing when the secret is another or the form is broken.
std::optional<PageHeaders> openPageHeaders(std::string_view carried, std::string_view secret);

/// A name that may stand in a request, and a value that stays on its line.
bool isValidHeader(std::string_view name, std::string_view value);

}  // namespace quorl
