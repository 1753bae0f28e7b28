#pragma once

#include "WebView.h"

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
    void show(const std::string& text, bool reload);
    /// Loads the blank page and leaves it blank.
    void clear();
    /// Loads the blank page; what is to be drawn there stays as it is.
    void loadBlankPage();

    /// Whether a navigation there is the agent's own, which nobody's list of hosts may refuse: each
    /// refusal ends on this page.
    bool isOwnLoad(std::string_view url) const { return loading_ && url == blankPage; }
    /// The page of that URL has loaded.
    void didLoad(std::string_view url);

    /// There is a text to draw, and whether a link goes with it.
    bool hasText() const { return !text_.empty(); }
    const std::string& text() const { return text_; }
    bool offersReload() const { return reload_; }
    /// Draws the box into the page that the view shows.
    void draw(std::string_view retryURL);

  private:
    WebView& webView_;
    std::string text_;
    bool reload_ = false;
    bool loading_ = false;
};

/// Draws the error box into the page. The message goes between single quotes as it stands: one with
/// an apostrophe leaves the page blank, and no part of it runs.
std::string errorPageScript(std::string_view message, bool reload, std::string_view retryURL);

}  // namespace quorl
