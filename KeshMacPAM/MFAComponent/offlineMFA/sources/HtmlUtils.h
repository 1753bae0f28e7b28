#pragma once

#include "Resources.h"
#include "WebView.h"
#include "Window.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Drives the local page by short scripts. Values go into the scripts as they stand, between single
/// quotes, without escaping: callers pass only what the page may take literally. A script whose
/// value holds a quote fails, with a log line, and nothing of the value runs. Main thread only; web
/// view and window must outlive it.
class HtmlUtils {
  public:
    HtmlUtils(WebView& webView, BrowserWindow& window, const Resources& resources);

    /// View and window belong to somebody else from now on: nothing reaches them any more, however
    /// late an answer of the page comes.
    void detach() { attached_ = false; }

    void setValueAttribute(std::string_view id, std::string_view value);
    void setSrcAttribute(std::string_view id, std::string_view value);
    void putInnerHtml(std::string_view id, std::string_view html);
    void removeAttribute(std::string_view id, std::string_view attribute);
    void insertAdjacentHTML(std::string_view id, std::string_view where, std::string_view html);
    /// The value of the checked radio button of the group, or nothing; called exactly once.
    void radioSelected(std::string_view group,
                       std::function<void(std::optional<std::string>)> completion);
    void executeScript(const std::string& script);
    void loadFromResource(std::string_view name, std::string_view type);
    void closeWindow();
    std::string getStringFromResource(std::string_view name, std::string_view type) const;

  private:
    WebView& webView_;
    BrowserWindow& browserWindow_;
    const Resources& resources_;
    bool attached_ = true;
};

}  // namespace quorl
