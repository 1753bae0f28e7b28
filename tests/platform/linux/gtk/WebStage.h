#pragma once

#include "Application.h"
#include "TestServer.h"
#include "Value.h"
#include "XvfbDisplay.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorl::test {

/// Writes down what a web view tells, one short line each, and answers as the test wants.
class RecordingDelegate final : public WebViewDelegate {
  public:
    std::vector<std::string> events;
    std::vector<LoadError> errors;
    std::vector<std::optional<std::string>> messages;
    std::vector<std::string> sources;  ///< of the messages
    std::vector<double> progress;
    ChallengeAnswer certificates = ChallengeAnswer::useCredential;
    std::function<NavigationDecision(const std::string&)> policy = [](const std::string&) {
        return NavigationDecision::allow;
    };

    NavigationDecision decidePolicyForNavigationAction(const std::string& url) override {
        events.push_back("policy " + url);
        return policy(url);
    }
    void didStartProvisionalNavigation() override { events.push_back("start"); }
    void didCommitNavigation() override { events.push_back("commit"); }
    void didFinishNavigation(const std::string& url) override { events.push_back("finish " + url); }
    void didFailNavigation(const LoadError& error) override { noteFailure("failed ", error); }
    void didFailProvisionalNavigation(const LoadError& error) override {
        noteFailure("failed before commit ", error);
    }
    ChallengeAnswer didReceiveAuthenticationChallenge(AuthenticationMethod) override {
        return certificates;
    }
    void didReceiveScriptMessage(const std::string& channel, const std::optional<std::string>& body,
                                 const MessageSource& source) override {
        events.push_back("message on " + channel);
        messages.push_back(body);
        sources.push_back(source.pageURL);
    }
    void estimatedProgressChanged(double value) override { progress.push_back(value); }
    void webContentProcessDidTerminate() override { events.push_back("terminated"); }

    std::size_t count(const std::string& event) const;
    /// The events since the last call, in one text. URLs without their host.
    std::string take();

  private:
    void noteFailure(const char* what, const LoadError& error) {
        events.push_back(what + std::to_string(error.code));
        errors.push_back(error);
    }
};

/// The real application on a display of its own, its real web view, and the self-service server.
class WebStage : public ::testing::Test {
  public:
    void SetUp() override;
    void TearDown() override;

  protected:
    /// Starts a server; the last one is what url() names.
    void startServer(const std::vector<std::string>& switches = {},
                     const std::string& certificate = "server") {
        servers_.push_back(std::make_unique<TestServer>(certificate, switches));
    }
    std::string url(const std::string& path, const std::string& host = "127.0.0.1") const {
        return servers_.back()->url(path, host);
    }
    /// The requests that the server has seen for the path, query included.
    std::vector<Value> requests(const std::string& path) const;
    static std::optional<std::string> header(const Value& request, const std::string& name);

    /// Serves the main loop until the condition holds.
    bool until(const std::function<bool()>& condition,
               std::chrono::milliseconds deadline = std::chrono::seconds(15));
    void serveFor(std::chrono::milliseconds duration);
    /// Loads and waits for the end, good or bad; what was told until then.
    std::string load(const PageRequest& request);
    /// A script's value in the page, or "error: …".
    std::string evaluate(const std::string& script);
    void show();
    /// Processes below ours whose name begins so.
    static std::vector<pid_t> descendants(const std::string& name);

    TestSandbox sandbox;
    XvfbDisplay display;
    RecordingDelegate delegate;
    std::unique_ptr<Application> application;
    std::unique_ptr<WebView> view;

  private:
    std::vector<std::unique_ptr<TestServer>> servers_;
};

}  // namespace quorl::test
