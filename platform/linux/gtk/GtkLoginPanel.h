#pragma once

#include "GlibSupport.h"
#include "Window.h"

#include <gtk/gtk.h>

#include <functional>

namespace quorl {

/// The small window at the bottom right of the login screen, from the interface description.
class GtkLoginPanel final : public LoginPanel {
  public:
    /// The builder's objects must be there; the builder outlives the panel.
    explicit GtkLoginPanel(GtkBuilder* builder);
    ~GtkLoginPanel() override;
    GtkLoginPanel(const GtkLoginPanel&) = delete;
    GtkLoginPanel& operator=(const GtkLoginPanel&) = delete;

    void setLinkAction(std::function<void()> action) { linkAction_ = std::move(action); }

    Size screenSize() const override;
    Rect frame() const override;
    void showAt(const Rect& frame) override;
    void orderOut() override;
    bool setButtonImage(const std::string& path) override;
    void setButtonText(const std::string& text) override;
    Rect buttonTextFrame() const override;
    void setButtonTextOrigin(const Point& origin) override;
    void setButtonTextColor(const Color& color) override;
    void setEnabled(bool enabled) override;

  private:
    bool fits(const std::string& text) const;
    void clicked();
    void place();
    void monitorsChanged();
    gboolean drawBackground(cairo_t* drawing);
    gboolean visibilityChanged(GdkEvent* event);
    void showPointingHand();

    GtkWindow* window_;
    GtkWidget* content_;
    GtkWidget* button_;
    GtkImage* image_;
    GtkWidget* link_;
    GtkLabel* label_;
    std::function<void()> linkAction_;
    Rect frame_;
    double rightMargin_ = 0;  ///< kept when the screen changes
    OneShotTimer raise_;
    SignalConnections signals_;
};

}  // namespace quorl
