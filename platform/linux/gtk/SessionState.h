#pragma once

#include "GlibSupport.h"

#include <gio/gio.h>

#include <optional>
#include <string>

namespace quorl {

/// What a session's history holds of a page.
struct HistoryPage {
    struct Body {
        std::string contentType;
        std::string content;
    };
    std::string url;
    std::string referrer;
    std::optional<Body> body;  ///< for a page that is reached by sending one
};

/// The history of a view whose only page is that one, in the form in which the engine itself
/// stores it (version 2 of its format). Each has sequence numbers of its own,
/// or the engine would take two for the same document and send nothing.
GVariant* sessionStateOf(const HistoryPage& page);

/// Overwrites the state, once the engine has read it: bodies hold passwords.
void wipeState(GVariant* state);

}  // namespace quorl
