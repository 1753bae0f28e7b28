#pragma once

#include <tl/expected.hpp>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorl {

/// The page that a cleared view shows, and that error texts are drawn into.
inline constexpr const char* blankPage = "about:blank";

/// That page under any of its names: a query or a fragment puts nothing into it.
inline bool isBlankPage(std::string_view url) {
    const std::string_view blank = blankPage;
    return url.starts_with(blank) &&
           (url.size() == blank.size() || url[blank.size()] == '?' || url[blank.size()] == '#');
}

/// Links of the pages that the agent draws itself. They lead nowhere: the delegate that is asked
/// about one acts on it.
namespace OwnLink {
inline constexpr const char* retry = "about:blank?retry";
inline constexpr const char* close = "about:blank?close";
}  // namespace OwnLink

/// A page to load. An absent body means none; method "POST" goes with a body.
struct PageRequest {
    std::string url;
    std::string method = "GET";
    std::optional<std::string> body = std::nullopt;
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::chrono::seconds timeout{30};
};

/// The platform-independent codes of a failed load.
namespace LoadErrorCode {
constexpr int unknown = -1;
constexpr int cancelled = -999;
constexpr int timedOut = -1001;
constexpr int cannotFindHost = -1003;
constexpr int cannotConnectToHost = -1004;
constexpr int networkConnectionLost = -1005;
constexpr int secureConnectionFailed = -1200;
constexpr int serverCertificateHasBadDate = -1201;
constexpr int serverCertificateUntrusted = -1202;
constexpr int serverCertificateHasUnknownRoot = -1203;
constexpr int serverCertificateNotYetValid = -1204;
}  // namespace LoadErrorCode

/// Why a load failed.
struct LoadError {
    int code = LoadErrorCode::unknown;
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

/// Which page posted a message: the one that fills the view. Frames inside it have no channel.
struct MessageSource {
    std::string pageURL;
};

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
                                         const std::optional<std::string>& body,
                                         const MessageSource& source) = 0;
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
    /// Leaves nothing of the page behind: its process ends; history, what it stored and session
    /// cookies go; lasting cookies are put on disk and stay. A load that follows waits for that.
    virtual void clear() = 0;
    /// Starts what the first page needs, as soon as nothing else is to do; clear() does so by
    /// itself.
    virtual void warmUp() = 0;
    /// Returns when the lasting cookies are on disk, or when the time is up (false).
    virtual bool saveCookies(std::chrono::milliseconds limit) = 0;
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
    /// How long a load that a page begins may stay without a byte. The page may be waiting for
    /// somebody's approval on another device.
    std::chrono::seconds pagePatience{60};
};

}  // namespace quorl
