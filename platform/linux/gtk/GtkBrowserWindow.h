#pragma once

#include "GlibSupport.h"
#include "IdleWatch.h"
#include "KeyboardFocus.h"
#include "Window.h"

#include <gtk/gtk.h>

#include <array>
#include <optional>
#include <set>
#include <string>

namespace quorl {

/// The browser window, from the interface description: a title strip of its own, the progress bar,
/// the web view. Made once; closing hides it.
class GtkBrowserWindow final : public BrowserWindow {
  public:
    /// The builder's objects must be there; the builder outlives the window.
    explicit GtkBrowserWindow(GtkBuilder* builder);
    ~GtkBrowserWindow() override;
    GtkBrowserWindow(const GtkBrowserWindow&) = delete;
    GtkBrowserWindow& operator=(const GtkBrowserWindow&) = delete;

    /// Puts the web view's widget into the window, where layOut() has told; null when it is about
    /// to be destroyed.
    void setWebWidget(GtkWidget* widget);

    void setWords(const WindowWords& words);

    void setDelegate(WindowDelegate* delegate) override { delegate_ = delegate; }
    void setTitle(const std::string& title) override;
    bool isVisible() const override;
    Rect frame() const override;
    void prepareForLoginWindow() override;
    void setFrame(const Rect& frame) override;
    void center() override;
    void orderFrontRegardless() override;
    void makeKeyWindow() override;
    void setIdleLimit(std::optional<std::chrono::milliseconds> limit) override {
        idle_.setLimit(limit);
    }
    void orderOut() override;
    void close() override;
    void layOut(const Rect& progressBar, const Rect& webView) override;
    double progress() const override { return progress_; }
    void setProgress(double value) override;
    void setProgressHidden(bool hidden) override;
    void announce(const std::string& words, Announced how) override;
    void awaitPage(const std::string& words) override;

  private:
    void zoom();
    void place(const GdkRectangle& target);
    void hideNotifications();
    void settled(const GdkRectangle& now);
    gboolean configured(GdkEvent* event);
    gboolean mapped(GdkEvent* event);
    gboolean keyPressed(GdkEvent* event);
    gboolean keyReleased(GdkEvent* event);
    gboolean deleteRequested(GdkEvent* event);
    gboolean stripPressed(GdkEvent* event);
    gboolean stripDragged(GdkEvent* event);
    void followTextSize();
    GdkRectangle pagePlace() const;
    GdkRectangle progressPlace() const;
    GdkRectangle waitingPlace() const;
    gboolean placeChild(GtkWidget* child, GdkRectangle* allocation);
    void monitorsChanged();

    GtkWindow* window_;
    GtkOverlay* content_;
    GtkWidget* strip_;
    GtkLabel* title_;
    GtkWidget* closeButton_;
    GtkWidget* zoomButton_;
    GtkWidget* progressBox_;
    GtkProgressBar* progressBar_;
    GtkWidget* waitingBand_;
    GtkLabel* waitingLabel_;
    std::array<GtkWidget*, 4> notifications_{};  ///< used in turn
    std::size_t announcements_ = 0;
    std::set<std::string> saidOnce_;  ///< since the window was hidden last
    GtkWidget* webWidget_ = nullptr;
    WindowDelegate* delegate_ = nullptr;
    GdkRectangle place_{};            ///< from the top left of the whole display
    GdkRectangle placeBeforeZoom_{};  ///< empty while not zoomed
    Rect progressRect_;
    Rect webRect_;
    double progress_ = 0;
    bool wantsFocus_ = false;
    bool escapeIsDown_ = false;
    guint32 lastTab_ = 0;        ///< the time stamp of the last Tab key
    std::optional<Point> drag_;  ///< where in the window the strip is held
    OneShotTimer patience_;
    KeyboardFocus focus_;
    IdleWatch idle_;
    SignalConnections signals_;
};

}  // namespace quorl
