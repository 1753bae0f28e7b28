#pragma once

#include <tl/expected.hpp>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quorl {

/// A page to load. An absent body means none; method "POST" goes with a body.
struct PageRequest {
    std::string url;
    std::string method = "GET";
    std::optional<std::string> body = std::nullopt;
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::chrono::seconds timeout{30};
};

/// A failed load: the platform-independent code (-999 cancelled, -1001 timed out, -1003 unknown
/// host, -1004 refused, -1005 connection lost, -1200 TLS, -1201…-1204 certificate, -1 anything
/// else).
struct LoadError {
    int code = -1;
    std::string description;
};

struct Cookie {
    std::string name;
    std::string domain;
    std::string path;
    bool sessionOnly = false;
};

enum class NavigationDecision { allow, cancel };
enum class AuthenticationMethod { serverTrust, other };
enum class ChallengeAnswer { useCredential, performDefaultHandling };

/// Value of an evaluated script as text (a string as it stands, a number in decimal, nothing for
/// undefined and null), or the error's description.
using ScriptResult = tl::expected<std::optional<std::string>, std::string>;

/// Who is told what happens in a web view. Every call comes on the main thread.
class WebViewDelegate {
  public:
    virtual ~WebViewDelegate() = default;
    /// Before each navigation of any frame, redirects included.
    virtual NavigationDecision decidePolicyForNavigationAction(const std::string& url) = 0;
    virtual void didStartProvisionalNavigation() = 0;
    virtual void didCommitNavigation() = 0;
    /// The page of that URL has loaded; never after a failure.
    virtual void didFinishNavigation(const std::string& url) = 0;
    virtual void didFailNavigation(const LoadError& error) = 0;
    virtual void didFailProvisionalNavigation(const LoadError& error) = 0;
    virtual ChallengeAnswer didReceiveAuthenticationChallenge(AuthenticationMethod method) = 0;
    /// A message on the registered channel; the body is nothing when the page posted no text.
    virtual void didReceiveScriptMessage(const std::string& channel,
                                         const std::optional<std::string>& body) = 0;
    /// Estimated progress of the load, 0 to 1.
    virtual void estimatedProgressChanged(double progress) = 0;
    /// The process that draws the page has died; the view is blank.
    virtual void webContentProcessDidTerminate() = 0;
};

/// The web view inside the browser window. Main thread only. A message posted by a page that a
/// newer load of ours is about to replace is dropped with a log line: it is no answer to the newer
/// request. So is one from "about:blank", where only error texts show.
class WebView {
  public:
    using ScriptCompletion = std::function<void(ScriptResult)>;
    using CookiesCompletion = std::function<void(std::vector<Cookie>)>;

    virtual ~WebView() = default;
    virtual void loadRequest(const PageRequest& request) = 0;
    /// Loads a local page by its absolute path.
    virtual void loadFile(const std::string& path) = 0;
    virtual void stopLoading() = 0;
    /// Evaluates in the current page; returns at once, scripts run in the order they were given.
    /// The completion, where given, is called exactly once unless the view is destroyed first.
    virtual void evaluateJavaScript(const std::string& script, ScriptCompletion completion) = 0;
    /// Injected at document end into all frames of every page loaded from now on.
    virtual void addUserScript(const std::string& source) = 0;
    virtual void getAllCookies(CookiesCompletion completion) = 0;
    virtual void deleteCookie(const Cookie& cookie, std::function<void()> completion) = 0;
    virtual void setAllowsBackForwardNavigationGestures(bool allowed) = 0;
    virtual void setNeedsDisplay() = 0;
};

/// What a web view is made with: the channel under which its pages can post messages, and the
/// delegate, which must outlive the view.
struct WebViewConfiguration {
    std::string scriptMessageHandlerName;
    WebViewDelegate* delegate = nullptr;
};

}  // namespace quorl
