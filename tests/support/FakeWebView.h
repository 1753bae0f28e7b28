#pragma once

#include "WebView.h"

#include <deque>
#include <utility>

namespace quorl::test {

/// A web view that draws nothing: it keeps what it was told to load and to evaluate, and answers
/// scripts only when asked to, as the real one answers later. Its delegate is told what the test
/// lets happen.
class FakeWebView final : public WebView {
  public:
    explicit FakeWebView(WebViewConfiguration configuration = {})
        : configuration_(std::move(configuration)) {}

    std::vector<PageRequest> requests;
    std::vector<std::string> files;
    std::vector<std::string> scripts;
    /// The load asked for last; a test that lets it come empties this.
    std::string loading;
    std::vector<std::string> userScripts;
    std::vector<Cookie> cookies;
    bool navigationGestures = true;
    /// What the page answers to a script.
    std::function<ScriptResult(const std::string&)> answer = [](const std::string&) {
        return ScriptResult(std::nullopt);
    };

    void loadRequest(const PageRequest& request) override {
        requests.push_back(request);
        loading = request.url;
    }
    void loadFile(const std::string& path) override {
        files.push_back(path);
        loading = "file://" + path;
    }
    void stopLoading() override {}
    void warmUp() override {}
    void clear() override {}
    bool saveCookies(std::chrono::milliseconds) override { return true; }
    void evaluateJavaScript(const std::string& script, ScriptCompletion completion) override {
        scripts.push_back(script);
        if (completion)
            pending_.push_back([this, script, completion] { completion(answer(script)); });
    }
    void addUserScript(const std::string& source) override { userScripts.push_back(source); }
    void getAllCookies(CookiesCompletion completion) override {
        pending_.push_back([this, completion] { completion(cookies); });
    }
    void deleteCookie(const Cookie& cookie, std::function<void()> completion) override {
        std::erase_if(cookies, [&](const Cookie& kept) {
            return kept.name == cookie.name && kept.domain == cookie.domain &&
                   kept.path == cookie.path;
        });
        pending_.push_back(std::move(completion));
    }
    void setAllowsBackForwardNavigationGestures(bool allowed) override {
        navigationGestures = allowed;
    }
    void setNeedsDisplay() override {}

    /// Answers what is owed, in the order it was asked, until nothing is left.
    void deliver() {
        while (!pending_.empty()) {
            const auto next = std::move(pending_.front());
            pending_.pop_front();
            if (next)
                next();
        }
    }
    /// The scripts since the last call.
    std::vector<std::string> takeScripts() { return std::exchange(scripts, {}); }

    WebViewDelegate& delegate() const { return *configuration_.delegate; }

  private:
    WebViewConfiguration configuration_;
    std::deque<std::function<void()>> pending_;
};

}  // namespace quorl::test
