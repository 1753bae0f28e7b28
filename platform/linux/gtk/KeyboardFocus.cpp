#include "KeyboardFocus.h"

#include <gdk/gdkx.h>

namespace quorl {
namespace {

bool windowManagerRuns(GdkScreen* screen) {
    return gdk_x11_screen_supports_net_wm_hint(screen,
                                               gdk_atom_intern("_NET_ACTIVE_WINDOW", FALSE));
}

}  // namespace

void KeyboardFocus::take(GtkWindow* window) {
    GdkWindow* gdkWindow = gtk_widget_get_window(GTK_WIDGET(window));
    GdkDisplay* display = gdk_window_get_display(gdkWindow);
    if (windowManagerRuns(gdk_window_get_screen(gdkWindow))) {
        gtk_window_present_with_time(window, gdk_x11_get_server_time(gdkWindow));
        return;
    }
    Display* xDisplay = GDK_DISPLAY_XDISPLAY(display);
    Window holder = None;
    int revertTo = 0;
    XGetInputFocus(xDisplay, &holder, &revertTo);
    const Window own = GDK_WINDOW_XID(gdkWindow);
    if (holder != own)
        previous_ = holder;
    gdk_x11_display_error_trap_push(display);
    XSetInputFocus(xDisplay, own, RevertToPointerRoot, CurrentTime);
    gdk_x11_display_error_trap_pop_ignored(display);
}

void KeyboardFocus::giveBack() {
    if (!previous_)
        return;
    GdkDisplay* display = gdk_display_get_default();
    // The window that had it may be gone.
    gdk_x11_display_error_trap_push(display);
    XSetInputFocus(GDK_DISPLAY_XDISPLAY(display), *previous_, RevertToPointerRoot, CurrentTime);
    gdk_x11_display_error_trap_pop_ignored(display);
    previous_.reset();
}

}  // namespace quorl
