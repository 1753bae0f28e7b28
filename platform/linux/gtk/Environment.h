#pragma once

namespace quorl {

/// Settles the environment for GTK and WebKit, before either starts: no service of a session that
/// does not exist yet is started or waited for, and nothing inherited opens a way into the windows.
void prepareGtkEnvironment();

}  // namespace quorl
