#pragma once

#include <string>

struct _XDisplay;

namespace quorl {

/// The address of the accessibility bus as the greeter's side leaves it on the display's root
/// window, from where every toolkit takes it. Empty when there is none. Whatever a client of the
/// display wrote there: it is to be checked.
std::string accessibilityBusOnDisplay(_XDisplay* display);

}  // namespace quorl
