#pragma once

#include "GlibSupport.h"

#include <gdk/gdk.h>

#include <functional>
#include <string>

struct _XDisplay;

namespace quorl {

/// Names the greeter's accessibility bus to the libraries when it lets us in, and none otherwise:
/// one that refuses us would end the application. Before the toolkit starts; `display` may be null.
/// Gives the address of the bus that was joined, as it stands on the display; nothing when none
/// was.
std::string joinAccessibilityBus(_XDisplay* display);

/// The address by which the libraries reach the bus that was joined; null when none was.
const char* joinedAccessibilityBus();

/// Looks out for an accessibility bus that comes to the display later (the reader is switched on at
/// the greeter, or a greeter anew brings a bus of its own), which the libraries take up at their
/// start alone.
class AccessibilityWatch {
  public:
    /// `joined` is what joining gave. `appeared` is called for each other bus that lets us in.
    AccessibilityWatch(GdkDisplay* display, std::string joined, std::function<void()> appeared);
    ~AccessibilityWatch();
    AccessibilityWatch(const AccessibilityWatch&) = delete;
    AccessibilityWatch& operator=(const AccessibilityWatch&) = delete;

  private:
    static GdkFilterReturn eventSeen(GdkXEvent* event, GdkEvent*, gpointer self);
    void look();
    void tryBus();

    GdkDisplay* display_;
    GdkWindow* root_;
    std::string known_;
    std::function<void()> appeared_;
    OneShotTimer timer_;
    int triesLeft_ = 0;
};

}  // namespace quorl
