#pragma once

#include "Window.h"

#include <gdk/gdk.h>

namespace quorl {

/// The monitor that carries the login screen, in logical pixels.
GdkRectangle loginMonitor();

/// Its part that a zoomed window may cover.
GdkRectangle loginWorkArea();

/// How much larger than usual the desktop wants its texts; never smaller.
double textScale();

/// Where a rectangle given from the bottom left of a container of that height lies, counted from
/// the top left, in whole pixels.
GdkRectangle fromTopLeft(const Rect& rect, double containerHeight);
Rect fromBottomLeft(const GdkRectangle& rect, double containerHeight);

}  // namespace quorl
