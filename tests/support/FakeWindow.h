#pragma once

#include "Window.h"

#include <vector>

namespace quorl::test {

/// A browser window without a screen: shown, hidden and closed by its rules, its delegate told as
/// the real one tells it.
class FakeBrowserWindow final : public BrowserWindow {
  public:
    std::string title;
    bool visible = false;
    bool dressedForLogin = false;
    bool centered = false;
    bool key = false;
    int closes = 0;
    Rect shownAt;
    Rect webViewFrame;
    std::optional<std::chrono::milliseconds> idleLimit;
    std::vector<std::string> announced;

    void setDelegate(WindowDelegate* delegate) override { delegate_ = delegate; }
    void setTitle(const std::string& text) override { title = text; }
    bool isVisible() const override { return visible; }
    Rect frame() const override { return shownAt; }
    void prepareForLoginWindow() override { dressedForLogin = true; }
    void setFrame(const Rect& frame) override { shownAt = frame; }
    void center() override { centered = true; }
    void orderFrontRegardless() override { visible = true; }
    void makeKeyWindow() override { key = true; }
    void setIdleLimit(std::optional<std::chrono::milliseconds> limit) override {
        idleLimit = limit;
    }
    void orderOut() override { visible = key = false; }
    void close() override {
        ++closes;
        if (delegate_)
            delegate_->windowWillClose();
        visible = key = false;
    }
    void layOut(const Rect&, const Rect& webView) override { webViewFrame = webView; }
    double progress() const override { return 0; }
    void setProgress(double) override {}
    void setProgressHidden(bool) override {}
    void announce(const std::string& words, Announced) override { announced.push_back(words); }
    void awaitPage(const std::string&) override {}

    /// Nobody touches anything for a long time.
    void sitIdle() {
        if (visible && idleLimit && delegate_)
            delegate_->windowWasIdle();
    }

  private:
    WindowDelegate* delegate_ = nullptr;
};

/// A login panel without a screen.
class FakeLoginPanel final : public LoginPanel {
  public:
    Size screen{1280, 800};
    Rect shownAt{{0, 0}, {200, 60}};
    Rect textFrame{{10, 10}, {180, 20}};
    std::string image;
    std::string text;
    bool visible = false;
    bool enabled = true;

    Size screenSize() const override { return screen; }
    Rect frame() const override { return shownAt; }
    void showAt(const Rect& frame) override {
        shownAt = frame;
        visible = true;
    }
    void orderOut() override { visible = false; }
    bool setButtonImage(const std::string& path) override {
        image = path;
        return true;
    }
    void setButtonText(const std::string& value) override { text = value; }
    Rect buttonTextFrame() const override { return textFrame; }
    void setButtonTextOrigin(const Point& origin) override { textFrame.origin = origin; }
    void setButtonTextColor(const Color&) override {}
    void setEnabled(bool value) override { enabled = value; }
};

}  // namespace quorl::test
