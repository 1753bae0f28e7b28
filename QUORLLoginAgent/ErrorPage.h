#pragma once

#include "ErrorKind.h"
#include "WebView.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// The blank page, and the error box that is drawn into it once it has loaded.
class ErrorPage {
  public:
    /// The view outlives the page.
    explicit ErrorPage(WebView& webView) : webView_(webView) {}

    /// Loads the blank page in place of whatever loads or shows; the text is drawn when that is
    /// done, with a "Retry" link on request.
    void show(ErrorKind kind, const std::string& text, bool reload);
    /// Loads the blank page and leaves it blank.
    void clear();
    /// Loads the blank page; what is to be drawn there stays as it is.
    void loadBlankPage();

    /// Whether a navigation there is the agent's own, which nobody's list of hosts may refuse: each
    /// refusal ends on this page.
    bool isOwnLoad(std::string_view url) const { return loading_ && url == blankPage; }
    /// The page of that URL has loaded.
    void didLoad(std::string_view url);
    /// Another page has taken the view.
    void didLeave() { drawn_ = false; }
    /// The view shows the box, and what leads from it is the agent's own.
    bool isDrawn() const { return drawn_; }

    /// There is a text to draw, and whether a link goes with it.
    bool hasText() const { return !text_.empty(); }
    const std::string& text() const { return text_; }
    ErrorKind kind() const { return kind_; }
    bool offersReload() const { return reload_; }
    /// Draws the box into the page that the view shows, inside the frame where there is one. What
    /// a frame says goes to `tell`, once it shows.
    void draw(std::string_view retryURL, const std::optional<std::string>& frameScript,
              std::function<void(const std::string&)> tell);

  private:
    WebView& webView_;
    std::string text_;
    ErrorKind kind_ = ErrorKind::message;
    bool drawn_ = false;
    bool reload_ = false;
    bool loading_ = false;
};

/// Draws the error box into the page. The message goes between single quotes as it stands: one with
/// an apostrophe leaves the box empty, and no part of it runs.
std::string errorPageScript(std::string_view message, bool reload, std::string_view retryURL);

}  // namespace quorl
