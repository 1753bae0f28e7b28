#include "ScreenGeometry.h"

#include <algorithm>
#include <cmath>

namespace quorl {
namespace {

GdkMonitor* monitor() {
    GdkDisplay* display = gdk_display_get_default();
    GdkMonitor* primary = gdk_display_get_primary_monitor(display);
    return primary ? primary : gdk_display_get_monitor(display, 0);
}

int rounded(double value) {
    return static_cast<int>(std::lround(value));
}

}  // namespace

GdkRectangle loginMonitor() {
    GdkRectangle geometry{};
    if (GdkMonitor* screen = monitor())
        gdk_monitor_get_geometry(screen, &geometry);
    return geometry;
}

GdkRectangle loginWorkArea() {
    GdkRectangle area{};
    if (GdkMonitor* screen = monitor())
        gdk_monitor_get_workarea(screen, &area);
    return area;
}

double textScale() {
    constexpr double usualResolution = 96;
    return std::max(1.0, gdk_screen_get_resolution(gdk_screen_get_default()) / usualResolution);
}

GdkRectangle fromTopLeft(const Rect& rect, double containerHeight) {
    // Edges are rounded rather than sizes, so that neighbours neither overlap nor leave a gap.
    const int left = rounded(rect.origin.x);
    const int right = rounded(rect.origin.x + rect.size.width);
    const int top = rounded(containerHeight - rect.origin.y - rect.size.height);
    const int bottom = rounded(containerHeight - rect.origin.y);
    return {left, top, right - left, bottom - top};
}

Rect fromBottomLeft(const GdkRectangle& rect, double containerHeight) {
    return {{static_cast<double>(rect.x), containerHeight - rect.y - rect.height},
            {static_cast<double>(rect.width), static_cast<double>(rect.height)}};
}

}  // namespace quorl
