#pragma once

#include <gtk/gtk.h>

#include <optional>

namespace quorl {

/// The keyboard focus of a login screen, where no window manager gives it: taken for a window when
/// it is shown, handed back to whoever had it when the window goes. Under a window manager the
/// window is activated the ordinary way, and nothing is handed back.
class KeyboardFocus {
  public:
    /// The window must be mapped.
    void take(GtkWindow* window);
    void giveBack();

  private:
    std::optional<unsigned long> previous_;
};

}  // namespace quorl
