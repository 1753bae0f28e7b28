#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace quorl {

/// Points, with the origin at the bottom left of the screen or of the containing window.
struct Point {
    double x = 0, y = 0;
    bool operator==(const Point&) const = default;
};
struct Size {
    double width = 0, height = 0;
    bool operator==(const Size&) const = default;
};
struct Rect {
    Point origin;
    Size size;
    bool operator==(const Rect&) const = default;
};

/// Told what happens to the browser window. Main thread.
class WindowDelegate {
  public:
    virtual ~WindowDelegate() = default;
    virtual void windowDidResize() = 0;
    /// The window is about to close, by the user or by close(); called before it disappears.
    virtual void windowWillClose() = 0;
    /// Nobody has used the window for its idle limit.
    virtual void windowWasIdle() = 0;
};

enum class Announced { always, once };

/// The browser window: title strip, progress bar, web view. Main thread only.
class BrowserWindow {
  public:
    virtual ~BrowserWindow() = default;
    virtual void setDelegate(WindowDelegate* delegate) = 0;
    virtual void setTitle(const std::string& title) = 0;
    virtual bool isVisible() const = 0;
    virtual Rect frame() const = 0;
    /// Dresses the window for the login screen before it is first shown there: not released when
    /// closed, visible without a logged-in user, never hidden, above everything, no miniaturise or
    /// toolbar button, full-screen auxiliary.
    virtual void prepareForLoginWindow() = 0;
    virtual void setFrame(const Rect& frame) = 0;
    virtual void center() = 0;
    virtual void orderFrontRegardless() = 0;
    virtual void makeKeyWindow() = 0;
    /// How long the window may show without a key, a click or a movement in it; counted from here.
    /// Nothing: for ever.
    virtual void setIdleLimit(std::optional<std::chrono::milliseconds> limit) = 0;
    /// Hides the window; no notification.
    virtual void orderOut() = 0;
    /// Notifies windowWillClose, then hides the window.
    virtual void close() = 0;
    virtual void layOut(const Rect& progressBar, const Rect& webView) = 0;
    virtual double progress() const = 0;
    /// 0 to 100, drawn at once.
    virtual void setProgress(double value) = 0;
    virtual void setProgressHidden(bool hidden) = 0;
    /// Has a screen reader speak these words, whatever has the focus; those that are said once, not
    /// again before the window is hidden. While it is, nothing is said.
    virtual void announce(const std::string& words, Announced how = Announced::always) = 0;
    /// A page is awaited from now on; after five seconds the window says these words. Empty: it has
    /// come, or nobody waits for it any more.
    virtual void awaitPage(const std::string& words) = 0;
};

/// What panel and window say of themselves, in the language of the login screen.
struct WindowWords {
    std::string panelTitle, close, maximize;
    bool rightToLeft = false;
};

/// A colour as the system names it; components above 1 are clamped by the backend.
struct Color {
    double red = 0, green = 0, blue = 0, alpha = 1;
};

/// The login panel: image button and clickable link text. Main thread only.
class LoginPanel {
  public:
    virtual ~LoginPanel() = default;
    virtual Size screenSize() const = 0;
    virtual Rect frame() const = 0;
    /// Visible without a logged-in user, above everything, see-through background, kept in place
    /// when the screen changes.
    virtual void showAt(const Rect& frame) = 0;
    virtual void orderOut() = 0;
    /// The image of the button; false when the file does not load, and the button keeps its own.
    virtual bool setButtonImage(const std::string& path) = 0;
    virtual void setButtonText(const std::string& text) = 0;
    virtual Rect buttonTextFrame() const = 0;
    virtual void setButtonTextOrigin(const Point& origin) = 0;
    virtual void setButtonTextColor(const Color& color) = 0;
    virtual void setEnabled(bool enabled) = 0;
};

}  // namespace quorl
