#pragma once

#include "PortalOperation.h"
#include "Value.h"
#include "WebView.h"

#include <optional>

namespace quorl {

/// The flow that a request dictionary asks for: the online page before the offline one before an
/// error text by identifier before an error text as it stands. Nothing when it names none.
std::optional<PortalOperation> chooseFlow(const Value& request);

/// The page request of an online flow: URL as given, "POST" with the request's "POST_DATA" when
/// that is a non-empty text, and those of its "REQUEST_HEADERS" whose values are texts. A null
/// request gives a plain GET.
PageRequest makePageRequest(const std::string& url, const Value& request);

/// The result dictionary of a window that was closed.
Value closedWindowResult(bool verified);

}  // namespace quorl
