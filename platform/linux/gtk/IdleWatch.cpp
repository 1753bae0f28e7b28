#include "IdleWatch.h"

namespace quorl {
namespace {

using SteadyClock = std::chrono::steady_clock;

bool isUse(const GdkEvent* event) {
    const GdkEventType type = gdk_event_get_event_type(event);
    return type == GDK_KEY_PRESS || type == GDK_BUTTON_PRESS || type == GDK_MOTION_NOTIFY ||
           type == GDK_SCROLL || type == GDK_TOUCH_BEGIN || type == GDK_TOUCH_UPDATE;
}

}  // namespace

// A hook and no handler: what is inside the window handles its events itself and passes none on.
IdleWatch::IdleWatch(GtkWindow* window, std::function<void()> idle)
    : window_(window),
      idle_(std::move(idle)),
      signal_(g_signal_lookup("event", GTK_TYPE_WIDGET)),
      hook_(g_signal_add_emission_hook(signal_, 0, &IdleWatch::eventSeen, this, nullptr)) {}

IdleWatch::~IdleWatch() {
    g_signal_remove_emission_hook(signal_, hook_);
}

void IdleWatch::setLimit(std::optional<std::chrono::milliseconds> limit) {
    limit_ = limit;
    lastUse_ = SteadyClock::now();
    timer_.stop();
    if (limit_)
        timer_.start(*limit_, [this] { look(); });
}

gboolean IdleWatch::eventSeen(GSignalInvocationHint*, guint count, const GValue* values,
                              gpointer self) {
    auto* watch = static_cast<IdleWatch*>(self);
    if (!watch->limit_ || count < 2)
        return TRUE;
    auto* widget = GTK_WIDGET(g_value_get_object(&values[0]));
    const auto* event = static_cast<const GdkEvent*>(g_value_get_boxed(&values[1]));
    if (event && isUse(event) && gtk_widget_get_toplevel(widget) == GTK_WIDGET(watch->window_))
        watch->lastUse_ = SteadyClock::now();
    return TRUE;
}

// One timer for the whole time, which looks how much of it is left: a moving pointer sends hundreds
// of events a second.
void IdleWatch::look() {
    const auto unused =
        std::chrono::floor<std::chrono::milliseconds>(SteadyClock::now() - lastUse_);
    if (unused < *limit_) {
        timer_.start(*limit_ - unused, [this] { look(); });
        return;
    }
    limit_.reset();
    idle_();
}

}  // namespace quorl
