#pragma once

#include "GlibSupport.h"

#include <gtk/gtk.h>

#include <chrono>
#include <functional>
#include <optional>

namespace quorl {

/// Tells when nobody has used a window for a while: no key, button, wheel, touch or movement of the
/// pointer, in the window itself or in anything inside it.
class IdleWatch {
  public:
    /// The window outlives the watch.
    IdleWatch(GtkWindow* window, std::function<void()> idle);
    ~IdleWatch();
    IdleWatch(const IdleWatch&) = delete;
    IdleWatch& operator=(const IdleWatch&) = delete;

    /// Starts to count; nothing: stops.
    void setLimit(std::optional<std::chrono::milliseconds> limit);

  private:
    static gboolean eventSeen(GSignalInvocationHint* hint, guint count, const GValue* values,
                              gpointer self);
    void look();

    GtkWindow* window_;
    std::function<void()> idle_;
    std::optional<std::chrono::milliseconds> limit_;
    std::chrono::steady_clock::time_point lastUse_;
    OneShotTimer timer_;
    guint signal_;
    gulong hook_ = 0;
};

}  // namespace quorl
