#pragma once

#include "RunLoop.h"
#include "WebView.h"
#include "Window.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quorl {

/// The application framework: main loop, windows of the interface description, web view.
/// Main thread only.
class Application {
  public:
    virtual ~Application() = default;
    /// The panel of the interface description; null when it is not connected.
    virtual LoginPanel* loginPanel() = 0;
    virtual BrowserWindow* browserWindow() = 0;
    virtual void setWords(const WindowWords& words) = 0;
    /// The action of the panel's button.
    virtual void setLinkAction(std::function<void()> action) = 0;
    /// Makes the web view inside the browser window. Its processes start at the first load.
    virtual std::unique_ptr<WebView> makeWebView(const WebViewConfiguration& configuration) = 0;
    virtual void hideMenuBar() = 0;
    /// Why this machine may show no page (the web engine's sandbox does not start), as one line;
    /// nothing when it may. Settled before the application is made, the same for all its life.
    virtual std::optional<std::string> pagesUnavailable() const = 0;
    /// The main thread's own loop, where ports can be added.
    virtual RunLoop& mainRunLoop() = 0;
    /// Called once when the application is asked to end, before run() returns.
    virtual void setWillTerminateHandler(std::function<void()> handler) = 0;
    /// Whether the application is at rest, so that nobody would miss it for a moment.
    virtual void setAtRestTest(std::function<bool()> test) = 0;
    /// Runs until the application is asked to end; gives the exit status.
    virtual int run() = 0;
    /// After run(): the application ended at rest to be started anew, since what it finds at its
    /// start has changed.
    virtual bool wantsNewStart() const = 0;
};

}  // namespace quorl
