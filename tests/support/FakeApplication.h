#pragma once

#include "Application.h"
#include "FakeWebView.h"
#include "FakeWindow.h"

namespace quorl::test {

/// An application without a display, around a run loop that the test serves itself.
class FakeApplication final : public Application {
  public:
    explicit FakeApplication(RunLoop& loop) : loop_(loop) {}

    FakeLoginPanel panel;
    FakeBrowserWindow window;
    WindowWords words;
    bool menuBarHidden = false;
    std::optional<std::string> pagesFault;
    std::function<void()> linkAction;
    std::function<void()> willTerminate;
    std::function<bool()> atRest;
    /// The web view that was made last; its maker owns it.
    FakeWebView* webView = nullptr;

    LoginPanel* loginPanel() override { return &panel; }
    BrowserWindow* browserWindow() override { return &window; }
    void setWords(const WindowWords& told) override { words = told; }
    void setLinkAction(std::function<void()> action) override { linkAction = std::move(action); }
    std::unique_ptr<WebView> makeWebView(const WebViewConfiguration& configuration) override {
        auto view = std::make_unique<FakeWebView>(configuration);
        webView = view.get();
        return view;
    }
    void hideMenuBar() override { menuBarHidden = true; }
    std::optional<std::string> pagesUnavailable() const override { return pagesFault; }
    RunLoop& mainRunLoop() override { return loop_; }
    void setWillTerminateHandler(std::function<void()> handler) override {
        willTerminate = std::move(handler);
    }
    void setAtRestTest(std::function<bool()> test) override { atRest = std::move(test); }
    bool wantsNewStart() const override { return false; }
    int run() override {
        if (willTerminate)
            willTerminate();
        return 0;
    }

  private:
    RunLoop& loop_;
};

}  // namespace quorl::test
