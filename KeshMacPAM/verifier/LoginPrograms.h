#pragma once

#include <string_view>

namespace quorl {

/// Display managers whose greeter shares its X11 screen with the agent's window. Those with a
/// Wayland greeter or a remote screen do not.
bool showsAgentWindow(std::string_view service);

/// Programs that show the module's error texts to the person, at a terminal. Greeters and remote
/// logins hold them back.
bool showsErrorTexts(std::string_view service);

/// Programs that can put a text of their caller's in the place of every prompt: people then type
/// the password where a code is asked for, and it must not stand on the screen.
bool replacesPrompts(std::string_view service);

}  // namespace quorl
