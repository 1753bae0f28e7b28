#pragma once

namespace quorl {

/// The toolkit loads whatever library another client of the display names in its settings, an
/// absolute path too, from before it is initialised. The program therefore has a g_module_open of
/// its own, which the toolkit's libraries meet first: it refuses what does not lie below /usr/lib,
/// with a log line. False when the program was linked so that they miss it.
bool moduleGateHolds();

}  // namespace quorl
