#pragma once

#include "GlibSupport.h"

#include <gio/gio.h>

#include <string>

namespace quorl {

/// A page that is reached by sending a body: what a session's history holds of it.
struct FormPage {
    std::string url;
    std::string referrer;
    std::string contentType;
    std::string body;
};

/// The history of a view whose only page is that one, in the form in which the engine itself
/// stores a page that was posted (version 2 of its format). Each has sequence numbers of its own,
/// or the engine would take two for the same document and send nothing.
GVariant* sessionStateOf(const FormPage& page);

}  // namespace quorl
