#pragma once

#include <string>
#include <string_view>

namespace quorl {

/// Draws the error box into the page. The message goes between single quotes as it stands: one with
/// an apostrophe leaves the page blank, and no part of it runs.
std::string errorPageScript(std::string_view message, bool reload, std::string_view retryURL);

/// When the file-input script runs: at a page's commit, or when the document is complete.
enum class PageEvent { navigateComplete, documentComplete };
std::string_view eventName(PageEvent event);

/// Removes file inputs as they appear and cancels clicks on them, so that no page can open a file
/// chooser on the login screen.
std::string fileInjectionScript(PageEvent event);

/// Tells pages that there is no built-in platform authenticator.
extern const std::string_view noPlatformAuthenticatorScript;

/// Takes the context menu from the page.
extern const std::string_view noContextMenuScript;

/// Hands the signed headers (a JSON text) to the page that asked for them.
std::string authHeaderResultScript(std::string_view json);

}  // namespace quorl
