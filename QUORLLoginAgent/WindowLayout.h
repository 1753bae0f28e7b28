#pragma once

#include "Window.h"

namespace quorl {

/// Where things stand. Points, origin at the bottom left.
namespace layout {

constexpr double panelWidth = 215;
constexpr double panelMargin = 20;
constexpr double titleAndProgressHeight = 35;
constexpr double progressHeight = 8;
constexpr double browserShare = 0.7;

constexpr Rect panelFrame(Size screen, double height) {
    return {{screen.width - panelWidth - panelMargin, 0}, {panelWidth, height}};
}
constexpr Rect browserFrame(Size screen) {
    return {{0, 0}, {browserShare * screen.width, browserShare * screen.height}};
}
constexpr Rect progressFrame(Size window) {
    return {{0, window.height - titleAndProgressHeight}, {window.width, progressHeight}};
}
constexpr Rect webViewFrame(Size window) {
    return {{0, 0}, {window.width, window.height - titleAndProgressHeight}};
}

}  // namespace layout
}  // namespace quorl
