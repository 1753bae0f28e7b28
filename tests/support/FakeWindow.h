#pragma once

#include "Window.h"

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
    Rect progressFrame;
    Rect webViewFrame;
    double progressValue = 0;
    std::optional<std::chrono::milliseconds> idleLimit;
    bool progressHidden = false;
    std::string waitingWords;

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
    void layOut(const Rect& progressBar, const Rect& webView) override {
        progressFrame = progressBar;
        webViewFrame = webView;
    }
    double progress() const override { return progressValue; }
    void setProgress(double value) override { progressValue = value; }
    void setProgressHidden(bool hidden) override { progressHidden = hidden; }
    void awaitPage(const std::string& words) override { waitingWords = words; }

    /// The user drags the window to another size.
    void resize(Size size) {
        shownAt.size = size;
        if (delegate_)
            delegate_->windowDidResize();
    }

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
    Color textColor;
    std::string image;
    std::string text;
    bool visible = false;
    bool enabled = true;
    bool imageLoads = true;

    Size screenSize() const override { return screen; }
    Rect frame() const override { return shownAt; }
    void showAt(const Rect& frame) override {
        shownAt = frame;
        visible = true;
    }
    void orderOut() override { visible = false; }
    bool setButtonImage(const std::string& path) override {
        if (imageLoads)
            image = path;
        return imageLoads;
    }
    void setButtonText(const std::string& value) override { text = value; }
    Rect buttonTextFrame() const override { return textFrame; }
    void setButtonTextOrigin(const Point& origin) override { textFrame.origin = origin; }
    void setButtonTextColor(const Color& color) override { textColor = color; }
    void setEnabled(bool value) override { enabled = value; }
};

}  // namespace quorl::test
