#include "PipeSource.h"
#include "WebStage.h"

#include <X11/Xlib.h>
#include <signal.h>
#include <unistd.h>

namespace quorl::test {
namespace {

class WindowNotes final : public WindowDelegate {
  public:
    int resized = 0;
    int closed = 0;
    int idle = 0;
    bool visibleWhenClosing = false;
    BrowserWindow* window = nullptr;

    void windowDidResize() override { ++resized; }
    void windowWasIdle() override { ++idle; }
    void windowWillClose() override {
        ++closed;
        visibleWhenClosing = window->isVisible();
    }
};

class Windows : public WebStage {
  public:
    void SetUp() override {
        WebStage::SetUp();
        notes.window = &browser();
        browser().setDelegate(&notes);
    }
    void TearDown() override {
        browser().setDelegate(nullptr);
        WebStage::TearDown();
    }

  protected:
    BrowserWindow& browser() { return *application->browserWindow(); }
    LoginPanel& panel() { return *application->loginPanel(); }
    void act(const std::string& xdotool) {
        Subprocess tool({.command = {"sh", "-c", "xdotool " + xdotool}});
        EXPECT_TRUE(until([&] { return !tool.running(); }));
        EXPECT_EQ(tool.wait(), 0) << xdotool;
    }
    void click(double x, double y) {
        act("mousemove " + std::to_string(static_cast<int>(x)) + " " +
            std::to_string(static_cast<int>(y)) + " click 1");
    }
    /// The window with a page whose field "i" has the keyboard.
    void showPage(const std::string& html) {
        TestSandbox::write(sandbox.root() / "page.htm", html);
        show();
        view->loadFile(sandbox.root() / "page.htm");
        ASSERT_TRUE(until([this] { return delegate.count("finish") == 1; }));
        ASSERT_TRUE(until([this] {
            return evaluate("document.hasFocus() && document.activeElement.id") == "i";
        }));
    }
    static constexpr double titleMiddle = 120 + 13;
    static constexpr double closeButton = 192 + 896 - 20;
    static constexpr double zoomButton = closeButton - 42;

    WindowNotes notes;
};

// Another program's window, as the greeter's: it has the focus until ours appears.
class OtherWindow {
  public:
    explicit OtherWindow(unsigned width = 50, unsigned height = 50)
        : display_(XOpenDisplay(nullptr)) {
        window_ = XCreateSimpleWindow(display_.get(), DefaultRootWindow(display_.get()), 0, 0,
                                      width, height, 0, 0, 0);
        XMapWindow(display_.get(), window_);
        XSync(display_.get(), False);
        XSetInputFocus(display_.get(), window_, RevertToPointerRoot, CurrentTime);
        XSync(display_.get(), False);
    }
    bool hasFocus() {
        Window holder = None;
        int revert = 0;
        XGetInputFocus(display_.get(), &holder, &revert);
        return holder == window_;
    }
    /// The window that is on top at that place.
    Window at(int x, int y) {
        Window root = DefaultRootWindow(display_.get());
        Window child = None;
        int ignored = 0;
        XTranslateCoordinates(display_.get(), root, root, x, y, &ignored, &ignored, &child);
        return child;
    }
    bool isAt(int x, int y) { return at(x, y) == window_; }
    std::pair<int, int> sizeOf(Window window) {
        XWindowAttributes attributes{};
        XGetWindowAttributes(display_.get(), window, &attributes);
        return {attributes.width, attributes.height};
    }
    /// Asks the window at that place to close, as a window manager does.
    void askToClose(int x, int y) {
        const Window child = at(x, y);
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = child;
        event.xclient.message_type = XInternAtom(display_.get(), "WM_PROTOCOLS", False);
        event.xclient.format = 32;
        event.xclient.data.l[0] =
            static_cast<long>(XInternAtom(display_.get(), "WM_DELETE_WINDOW", False));
        XSendEvent(display_.get(), child, False, NoEventMask, &event);
        XSync(display_.get(), False);
    }

  private:
    struct Close {
        void operator()(Display* display) const { XCloseDisplay(display); }
    };
    std::unique_ptr<Display, Close> display_;
    Window window_ = None;
};

TEST_F(Windows, TheBrowserTakesTheKeyboardByItselfAndGivesItBack) {
    OtherWindow greeter;
    ASSERT_TRUE(greeter.hasFocus());
    showPage("<input id=i autofocus><script>document.title='t'</script>");
    EXPECT_EQ(evaluate("innerWidth + 'x' + innerHeight"), "896x525");
    act("type 'Typed 0042'");
    EXPECT_TRUE(
        until([this] { return evaluate("document.getElementById('i').value") == "Typed 0042"; }));
    act("key Escape");
    EXPECT_TRUE(browser().isVisible());
    browser().orderOut();
    EXPECT_TRUE(until([&] { return greeter.hasFocus(); }));
    EXPECT_EQ(notes.closed, 0);
}

TEST_F(Windows, WhatWasCopiedOrMarkedGoesWithTheWindow) {
    showPage("<input id=i autofocus value=secret>");
    const auto held = [this](const std::string& selection) {
        const std::string out = sandbox.root() / "held";
        std::filesystem::remove(out);
        Subprocess tool({.command = {"xclip", "-o", "-selection", selection}, .output = out});
        EXPECT_TRUE(until([&] { return !tool.running(); }));
        return TestSandbox::read(out);
    };
    act("key ctrl+a key ctrl+c");
    for (const char* selection : {"clipboard", "primary"})
        EXPECT_TRUE(until([&] { return held(selection) == "secret"; })) << selection;
    browser().orderOut();
    for (const char* selection : {"clipboard", "primary"})
        EXPECT_EQ(held(selection), "") << selection;
    // Another program's text stays its own.
    const std::string text = sandbox.root() / "text";
    TestSandbox::write(text, "kept");
    Subprocess other({.command = {"xclip", "-quiet", "-selection", "clipboard", text}});
    EXPECT_TRUE(until([&] { return held("clipboard") == "kept"; }));
    show();
    browser().orderOut();
    EXPECT_EQ(held("clipboard"), "kept");
}

TEST_F(Windows, AWindowThatNobodyUsesIsToldOnce) {
    showPage("<input id=i autofocus>");
    const std::chrono::seconds limit(2);
    const auto begin = std::chrono::steady_clock::now();
    browser().setIdleLimit(limit);
    for (int i = 0; std::chrono::steady_clock::now() < begin + limit + limit / 2; ++i) {
        act(i % 2 ? "key a" : "mousemove_relative 1 1");
        serveFor(std::chrono::milliseconds(200));
    }
    EXPECT_EQ(notes.idle, 0) << "keys and movements in the page are use";
    act("mousemove 5 5");
    EXPECT_TRUE(until([this] { return notes.idle == 1; }));
    browser().setIdleLimit(std::nullopt);
    serveFor(limit + limit / 3);
    EXPECT_EQ(notes.idle, 1);
}

TEST_F(Windows, EverythingIsReachedByKeyboardAlone) {
    showPage("<input id=i autofocus><button id=b>last</button>");
    const auto focused = [this](const std::string& id) {
        return until([&] { return evaluate("document.activeElement.id") == id; },
                     std::chrono::seconds(3));
    };
    act("key Tab");
    ASSERT_TRUE(focused("b"));
    // Out to the strip's two buttons and in again, both ways round.
    const auto inPage = [this](bool wanted) {
        return until([&] { return (evaluate("document.hasFocus()") == "1") == wanted; });
    };
    act("key Tab");
    ASSERT_TRUE(inPage(false));
    act("key Tab Tab");
    ASSERT_TRUE(inPage(true));
    EXPECT_TRUE(focused("i"));
    act("key shift+Tab");
    ASSERT_TRUE(inPage(false));
    act("key shift+Tab shift+Tab");
    ASSERT_TRUE(inPage(true));
    EXPECT_TRUE(focused("b"));
    act("key Tab");
    ASSERT_TRUE(inPage(false));
    act("key Tab");
    act("key space");
    ASSERT_TRUE(until([this] { return !browser().isVisible(); }));
    EXPECT_EQ(notes.closed, 1);
    show();
    ASSERT_TRUE(inPage(true));
    act("key Tab Tab Tab");
    ASSERT_TRUE(inPage(false));
    act("key Escape");
    ASSERT_TRUE(until([this] { return !browser().isVisible(); }));
    EXPECT_EQ(notes.closed, 2);

    int clicked = 0;
    application->setLinkAction([&] { ++clicked; });
    panel().showAt({{1045, 0}, panel().frame().size});
    serveFor(std::chrono::milliseconds(100));
    act("mousemove 1050 795");
    for (const char* keys : {"Tab Return", "Tab space", "shift+Tab space"}) {
        const int before = clicked;
        act(std::string("key ") + keys);
        EXPECT_TRUE(until([&] { return clicked == before + 1; })) << keys;
    }
}

TEST_F(Windows, TheBrowserClosesAndZoomsByItsOwnStrip) {
    OtherWindow other;
    show();
    EXPECT_EQ(browser().frame(), (Rect{{192, 120}, {896, 560}}));
    serveFor(std::chrono::milliseconds(200));
    click(zoomButton, titleMiddle);
    EXPECT_TRUE(until([this] { return browser().frame() == Rect{{0, 0}, {1280, 800}}; }));
    EXPECT_GE(notes.resized, 1);
    act("mousemove 640 13 click --repeat 2 --delay 50 1");
    EXPECT_TRUE(until([this] { return browser().frame() == Rect{{192, 120}, {896, 560}}; }));
    act("mousemove 640 133 mousedown 1 mousemove 600 150 mousemove 540 183 mouseup 1");
    EXPECT_TRUE(until([this] { return browser().frame() == Rect{{92, 70}, {896, 560}}; }));
    browser().center();

    serveFor(std::chrono::milliseconds(200));
    click(closeButton, titleMiddle);
    ASSERT_TRUE(until([this] { return !browser().isVisible(); }));
    EXPECT_EQ(notes.closed, 1);
    EXPECT_TRUE(notes.visibleWhenClosing);

    show();
    serveFor(std::chrono::milliseconds(200));
    other.askToClose(640, 400);
    ASSERT_TRUE(until([this] { return !browser().isVisible(); }));
    EXPECT_EQ(notes.closed, 2);

    application->setWords({"panel", "close", "maximize", true});
    // Two windows are closed by the two clicks of a double click.
    for (int closed : {3, 4}) {
        show();
        serveFor(std::chrono::milliseconds(50));
        click(192 + 20, titleMiddle);
        EXPECT_TRUE(until([&] { return notes.closed == closed; }));
        EXPECT_EQ(browser().frame(), (Rect{{192, 120}, {896, 560}}));
    }
}

class LargeText : public Windows {
  public:
    void SetUp() override {
        Subprocess desktop({.command = {"xprop", "-root", "-f", "RESOURCE_MANAGER", "8s", "-set",
                                        "RESOURCE_MANAGER", "Xft.dpi: 192\n"}});
        ASSERT_EQ(desktop.wait(), 0);
        Windows::SetUp();
    }
};

TEST_F(LargeText, StripAndPanelGrowWithIt) {
    TestSandbox::write(sandbox.root() / "page.htm", "page");
    show();
    view->loadFile(sandbox.root() / "page.htm");
    // Of the page's own units, which are twice as large.
    EXPECT_TRUE(until([this] { return evaluate("innerWidth + 'x' + innerHeight") == "448x245"; }));
    OtherWindow other;
    panel().setButtonText("Reset Password / Unlock Account");
    panel().showAt({{1045, 0}, panel().frame().size});
    EXPECT_TRUE(until([&] {
        return other.sizeOf(other.at(1045 - 151 + 5, 795)) == std::pair(215 + 151, 40 + 2 * 30);
    }));
    click(closeButton, 120 + 60);
    EXPECT_TRUE(until([this] { return !browser().isVisible(); }));
}

TEST_F(Windows, ThePanelsLinkAnswersWhileItIsEnabled) {
    int clicked = 0;
    application->setLinkAction([&] { ++clicked; });
    EXPECT_EQ(panel().screenSize(), (Size{1280, 800}));
    EXPECT_TRUE(panel().setButtonImage(QUORL_SOURCE_DIR "/resources/reset_icon.png"));
    EXPECT_FALSE(panel().setButtonImage(QUORL_SOURCE_DIR "/resources/QUORLLoginAgent.ui"));
    EXPECT_FALSE(panel().setButtonImage("/nonexistent.png"));
    const Rect text = panel().buttonTextFrame();
    panel().setButtonTextOrigin({text.origin.x, text.origin.y + 20});
    EXPECT_EQ(panel().buttonTextFrame(), (Rect{{text.origin.x, text.origin.y + 20}, text.size}));
    const double height = panel().frame().size.height;
    panel().showAt({{1045, 0}, {215, height}});
    EXPECT_EQ(panel().frame(), (Rect{{1045, 0}, {215, height}}));
    EXPECT_LE(text.origin.x + text.size.width, 215);
    EXPECT_GE(text.origin.y, 0);
    EXPECT_LE(text.origin.y + 20 + text.size.height, height);

    const Rect now = panel().buttonTextFrame();
    const double x = 1045 + now.origin.x + now.size.width / 2;
    const double y = 800 - now.origin.y - now.size.height / 2;
    serveFor(std::chrono::milliseconds(200));
    click(x, y);
    EXPECT_TRUE(until([&] { return clicked == 1; }));
    click(1045 + 30, y);
    EXPECT_TRUE(until([&] { return clicked == 2; }));
    panel().setEnabled(false);
    click(x, y);
    serveFor(std::chrono::milliseconds(200));
    EXPECT_EQ(clicked, 2);
    panel().setEnabled(true);
    click(1, 1);
    click(x, y);
    EXPECT_TRUE(until([&] { return clicked == 3; }));
}

TEST_F(Windows, ThePanelStaysOnTopOfAGreeterAndOutOfItsWay) {
    panel().setButtonText("A text that is far longer than the two lines there is room for, really");
    const int top = 800 - static_cast<int>(panel().frame().size.height);
    EXPECT_LT(top, 800 - 76) << "it grows rather than cut the text";
    const Point origin = panel().buttonTextFrame().origin;
    panel().setButtonTextOrigin({origin.x, origin.y + 20});
    panel().showAt({{1045, 0}, {215, panel().frame().size.height}});
    serveFor(std::chrono::milliseconds(200));
    OtherWindow greeter(1280, 800);
    ASSERT_TRUE(greeter.isAt(1100, 780));
    ASSERT_TRUE(until([&] { return !greeter.isAt(1100, 780); }));
    EXPECT_TRUE(greeter.hasFocus());
    EXPECT_TRUE(greeter.isAt(1100, top - 5));
    EXPECT_EQ(greeter.sizeOf(greeter.at(1100, 780)), std::pair(215, 800 - top));
}

TEST_F(Windows, BothStayOnAScreenThatShrinks) {
    panel().showAt({{1045, 0}, panel().frame().size});
    show();
    OtherWindow other;
    ASSERT_TRUE(until([&] { return !other.isAt(1100, 790); }));
    act("mousemove 5 5; xrandr --newmode small 40 800 840 900 1000 600 603 609 620 && "
        "xrandr --addmode screen small && xrandr --output screen --mode small");
    const double height = panel().frame().size.height;
    EXPECT_TRUE(until([&] { return panel().frame() == Rect{{565, 0}, {215, height}}; }));
    EXPECT_TRUE(until([this] { return browser().frame() == Rect{{0, 20}, {800, 560}}; }));
    EXPECT_TRUE(until([&] { return !other.isAt(570, 590); }));
    EXPECT_GE(notes.resized, 1);
    serveFor(std::chrono::milliseconds(200));
    click(800 - 20, 20 + 13);
    EXPECT_TRUE(until([this] { return !browser().isVisible(); }));
}

TEST_F(Windows, TheLoopServesDescriptorsAndEndsOnSIGTERM) {
    // Takes a byte at a time, and on the second leaves the loop from inside.
    PipeSource source([&] {
        if (source.calls == 2)
            application->mainRunLoop().remove(source);
    });
    application->mainRunLoop().add(source);
    source.send(3);
    EXPECT_TRUE(until([&] { return source.calls == 2; }));
    serveFor(std::chrono::milliseconds(50));
    EXPECT_EQ(source.calls, 2);

    int ended = 0;
    application->setWillTerminateHandler([&] { ++ended; });
    kill(getpid(), SIGTERM);
    EXPECT_EQ(application->run(), 0);
    EXPECT_EQ(ended, 1);
}

}  // namespace
}  // namespace quorl::test
