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
    /// The panel's name, which nobody sees and readers speak.
    void setTitle(const std::string& title) { gtk_window_set_title(window_, title.c_str()); }

    Size screenSize() const override;
    Rect frame() const override;
    void showAt(const Rect& frame) override;
    void orderOut() override;
    bool setButtonImage(const std::string& path) override;
    void setButtonText(const std::string& text) override;
    Rect buttonTextFrame() const override { return textFrame_; }
    void setButtonTextOrigin(const Point& origin) override;
    void setButtonTextColor(const Color& color) override;
    void setEnabled(bool enabled) override;

  private:
    void clicked();
    void textChanged();
    int narrowestWidth(int width) const;
    void place();
    void monitorsChanged();
    gboolean drawBackground(cairo_t* drawing);
    gboolean visibilityChanged(GdkEvent* event);
    void showPointingHand();

    GtkWindow* window_;
    GtkWidget* button_;  ///< the image and the text are one control
    GtkWidget* content_;
    GtkWidget* image_;
    GtkWidget* label_;
    std::function<void()> linkAction_;
    Rect frame_;
    int imageEnd_ = 0;
    Rect textFrame_;          ///< where languages run from left to right
    double growth_ = 0;       ///< in width, to the left, for large texts
    double rightMargin_ = 0;  ///< kept when the screen changes
    OneShotTimer raise_;
    SignalConnections signals_;
};

}  // namespace quorl
