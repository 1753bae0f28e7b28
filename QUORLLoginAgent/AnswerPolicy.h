#pragma once

#include "PageMessage.h"
#include "Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Whose page posts on the channel. The list of what may be opened is no help there: it looks at
/// whole addresses, so that a page anywhere can hold one of its entries in a query.
enum class Speaker {
    server,       ///< https, its host the configured server's or one that holds a host entry
    offlinePage,  ///< the agent's own local page
    stranger,
};
/// `offlinePage` is the path of the agent's own page, nothing when it is not installed.
Speaker speakerOf(std::string_view pageURL, const Value& config,
                  const std::optional<std::string>& offlinePage);

/// Whether the agent listens: results and headers are the server's matter, buttons those of the
/// offline page while its flow runs. That page can also give up, which is a result.
bool maySay(PageMethod method, Speaker speaker, bool offlineFlowRuns);

/// The host of an https address in lower case, without user and port; nothing for other schemes.
std::optional<std::string> httpsHost(std::string_view url);

}  // namespace quorl
