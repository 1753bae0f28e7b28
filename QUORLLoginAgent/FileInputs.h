#pragma once

#include <string>
#include <string_view>

namespace quorl {

/// When a page's file inputs are removed: at its commit, and when the document is complete.
enum class PageEvent { navigateComplete, documentComplete };
std::string_view eventName(PageEvent event);

/// Cancels clicks on file inputs, and removes those that are there when the document is complete.
/// Inputs that a page adds later are the web view's own matter: the engine does not send the event
/// that this script listens for any more.
std::string fileInjectionScript(PageEvent event);

}  // namespace quorl
