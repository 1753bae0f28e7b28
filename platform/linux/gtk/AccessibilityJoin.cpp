#include "AccessibilityJoin.h"

#include "AccessibilityBus.h"
#include "DisplayBus.h"

#include <gdk/gdkx.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <optional>
#include <vector>

namespace quorl {
namespace {

constexpr const char* busVariable = "AT_SPI_BUS_ADDRESS";
// Named by who starts us as an account that the greeter's bus does not admit.
constexpr const char* relayVariable = "QUORL_ACCESSIBILITY_RELAY";
// A bus may still be on its way up when its address stands already.
constexpr int tries = 3;
constexpr std::chrono::milliseconds betweenTries{700};
constexpr std::chrono::milliseconds settling{200};

// A bus of root's, of ours or of the greeter's reads the screen to a blind person; any other could
// be a trap.
std::vector<uid_t> goodListeners() {
    std::vector<uid_t> listeners{0, geteuid()};
    const char* account = secure_getenv("QUORL_GREETER_ACCOUNT");
    if (const passwd* greeter = getpwnam(account ? account : QUORL_GREETER_ACCOUNT))
        listeners.push_back(greeter->pw_uid);
    return listeners;
}

// The address by which we reach the bus of the display, when it lets us in.
std::optional<std::string> admittingAddress(const std::string& onDisplay) {
    if (onDisplay.empty())
        return std::nullopt;
    const char* relay = secure_getenv(relayVariable);
    const std::string address = relay ? std::string("unix:path=") + relay : onDisplay;
    const auto socket = soleBusSocket(address);
    if (!socket || !admittedBy(*socket, goodListeners()))
        return std::nullopt;
    return address;
}

}  // namespace

std::string joinAccessibilityBus(Display* display) {
    std::string onDisplay = display ? accessibilityBusOnDisplay(display) : std::string();
    if (const auto address = admittingAddress(onDisplay)) {
        setenv(busVariable, address->c_str(), 1);
        unsetenv("NO_AT_BRIDGE");
        return onDisplay;
    }
    unsetenv(busVariable);
    // Else the toolkit asks the display for an address, which may name a program.
    setenv("NO_AT_BRIDGE", "1", 1);
    return {};
}

const char* joinedAccessibilityBus() {
    return getenv(busVariable);
}

AccessibilityWatch::AccessibilityWatch(GdkDisplay* display, std::string joined,
                                       std::function<void()> appeared)
    : display_(display),
      root_(gdk_screen_get_root_window(gdk_display_get_default_screen(display))),
      known_(std::move(joined)),
      appeared_(std::move(appeared)) {
    gdk_window_set_events(
        root_, static_cast<GdkEventMask>(gdk_window_get_events(root_) | GDK_PROPERTY_CHANGE_MASK));
    gdk_window_add_filter(root_, &AccessibilityWatch::eventSeen, this);
    // It may have come between the first look and here, or have come up since.
    timer_.start(settling, [this] { look(); });
}

AccessibilityWatch::~AccessibilityWatch() {
    gdk_window_remove_filter(root_, &AccessibilityWatch::eventSeen, this);
}

GdkFilterReturn AccessibilityWatch::eventSeen(GdkXEvent* event, GdkEvent*, gpointer self) {
    auto* watch = static_cast<AccessibilityWatch*>(self);
    const auto* xEvent = static_cast<const XEvent*>(event);
    if (xEvent->type == PropertyNotify &&
        xEvent->xproperty.atom ==
            gdk_x11_get_xatom_by_name_for_display(watch->display_, "AT_SPI_BUS") &&
        !watch->timer_.running())
        watch->timer_.start(settling, [watch] { watch->look(); });
    return GDK_FILTER_CONTINUE;
}

void AccessibilityWatch::look() {
    const std::string now = accessibilityBusOnDisplay(GDK_DISPLAY_XDISPLAY(display_));
    if (now.empty() || now == known_)
        return;
    known_ = now;
    triesLeft_ = tries;
    tryBus();
}

void AccessibilityWatch::tryBus() {
    if (admittingAddress(known_))
        appeared_();
    else if (--triesLeft_ > 0)
        timer_.start(betweenTries, [this] { tryBus(); });
}

}  // namespace quorl
