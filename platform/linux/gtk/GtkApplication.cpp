#include "GtkApplication.h"

#include "AccessibilityJoin.h"
#include "Environment.h"
#include "GlibRunLoop.h"
#include "GtkBrowserWindow.h"
#include "GtkLoginPanel.h"
#include "Log.h"
#include "ModuleGate.h"
#include "NewStart.h"
#include "PrivateHome.h"
#include "RuntimeFolder.h"
#include "SandboxCheck.h"
#include "SystemPaths.h"
#include "UntrustedDisplay.h"
#include "WebKitView.h"

#include <X11/Xlib.h>
#include <fmt/format.h>
#include <glib-unix.h>
#include <unistd.h>

#include <optional>
#include <vector>

namespace quorl {
namespace {

using MainLoop = Handle<GMainLoop, g_main_loop_unref>;
using Builder = GObjectHandle<GtkBuilder>;

// What keeps others out of the application and its pages' process out of the rest.
struct Surroundings {
    std::unique_ptr<SandboxTrial> sandbox;
    std::unique_ptr<PrivateHome> home;
    std::unique_ptr<UntrustedDisplay> display;
    std::string accessibilityBus;    // that was joined
    std::vector<std::string> notes;  // what does not hold on this machine, for the log
};

constexpr std::chrono::milliseconds restCheckInterval{500};

class GtkApplication final : public Application {
  public:
    GtkApplication(Builder builder, Surroundings surroundings)
        : surroundings_(std::move(surroundings)),
          builder_(std::move(builder)),
          mainLoop_(g_main_loop_new(nullptr, FALSE)) {
        if (gtk_builder_get_object(builder_.get(), "loginPanel"))
            panel_.emplace(builder_.get());
        if (gtk_builder_get_object(builder_.get(), "customBrowserWindow"))
            window_.emplace(builder_.get());
        for (const int signal : {SIGTERM, SIGINT})
            signals_.emplace_back(g_unix_signal_add(signal, &GtkApplication::endRequested, this));
        if (mayStartAnew())
            accessibility_.emplace(gdk_display_get_default(), surroundings_.accessibilityBus,
                                   [this] { startAnew(); });
    }

    LoginPanel* loginPanel() override { return panel_ ? &*panel_ : nullptr; }
    BrowserWindow* browserWindow() override { return window_ ? &*window_ : nullptr; }
    void setWords(const WindowWords& words) override {
        gtk_widget_set_default_direction(words.rightToLeft ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_LTR);
        if (panel_)
            panel_->setTitle(words.panelTitle);
        if (window_)
            window_->setWords(words);
    }
    void setLinkAction(std::function<void()> action) override {
        if (panel_)
            panel_->setLinkAction(std::move(action));
    }
    std::unique_ptr<WebView> makeWebView(const WebViewConfiguration& configuration) override {
        return std::make_unique<WebKitView>(
            configuration, WebKitView::Surroundings{.window = window_ ? &*window_ : nullptr,
                                                    .supportDirectory = ownDirectory()});
    }
    void hideMenuBar() override { logLine("hideMenuBar : this desktop has no menu bar to hide"); }
    std::optional<std::string> pagesUnavailable() const override {
        return surroundings_.sandbox->fault();
    }
    RunLoop& mainRunLoop() override { return runLoop_; }
    void setWillTerminateHandler(std::function<void()> handler) override {
        willTerminate_ = std::move(handler);
    }
    void setAtRestTest(std::function<bool()> test) override { atRest_ = std::move(test); }
    bool wantsNewStart() const override { return wantsNewStart_; }
    int run() override {
        for (const std::string& note : surroundings_.notes)
            logLine("GtkApplication : {}", note);
        if (const auto& fault = surroundings_.sandbox->fault())
            logLine("GtkApplication : no page is shown, every request fails: {}", *fault);
        if (!endRequested_)
            g_main_loop_run(mainLoop_.get());
        if (willTerminate_)
            willTerminate_();
        return 0;
    }

  private:
    static gboolean endRequested(gpointer self) {
        auto* application = static_cast<GtkApplication*>(self);
        application->wantsNewStart_ = false;
        application->end();
        return G_SOURCE_CONTINUE;
    }
    void end() {
        endRequested_ = true;
        g_main_loop_quit(mainLoop_.get());
    }
    // Nobody is to lose the window that is in use.
    void startAnew() {
        if (!atRest_ || !atRest_()) {
            restCheck_.start(restCheckInterval, [this] { startAnew(); });
            return;
        }
        logLine("GtkApplication : a screen reader has come, starts anew to be read by it");
        wantsNewStart_ = true;
        end();
    }

    Surroundings surroundings_;
    Builder builder_;
    MainLoop mainLoop_;
    GlibRunLoop runLoop_;
    std::optional<GtkLoginPanel> panel_;
    std::optional<GtkBrowserWindow> window_;
    std::vector<GlibSource> signals_;
    std::function<void()> willTerminate_;
    std::function<bool()> atRest_;
    std::optional<AccessibilityWatch> accessibility_;
    OneShotTimer restCheck_;
    bool endRequested_ = false;
    bool wantsNewStart_ = false;
};

using Failure = tl::unexpected<std::string>;

tl::expected<Builder, std::string> loadInterface(const Resources& resources) {
    const auto path = resources.pathForResource("QUORLLoginAgent", "ui");
    if (!path)
        return Failure("the interface description QUORLLoginAgent.ui is missing");
    Builder builder(gtk_builder_new());
    GError* error = nullptr;
    if (gtk_builder_add_from_file(builder.get(), path->c_str(), &error) == 0) {
        const GErrorHandle reason(error);
        return Failure(
            fmt::format("the interface description cannot be read: {}", reason->message));
    }
    return builder;
}

void applyLooks(const Resources& resources) {
    const auto path = resources.pathForResource("QUORLLoginAgent", "css");
    const GObjectHandle<GtkCssProvider> looks(gtk_css_provider_new());
    GError* error = nullptr;
    if (path && gtk_css_provider_load_from_path(looks.get(), path->c_str(), &error))
        gtk_style_context_add_provider_for_screen(gdk_screen_get_default(),
                                                  GTK_STYLE_PROVIDER(looks.get()),
                                                  GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    else
        logLine("GtkApplication : the windows keep the desktop's looks: {}",
                error ? error->message : "QUORLLoginAgent.css is missing");
    g_clear_error(&error);
}

// The libraries look for the display's authority in the home that was inherited.
void nameAuthority() {
    const char* home = getenv("HOME");
    if (home && !getenv("XAUTHORITY"))
        setenv("XAUTHORITY", (std::string(home) + "/.Xauthority").c_str(), 1);
}

tl::expected<std::unique_ptr<PrivateHome>, std::string> makeHome() {
    const std::string& folder = systemPaths().runtimeDir;
    if (prepareRuntimeFolder(folder))
        return PrivateHome::make(folder);
    // The service will say what is wrong with its folder.
    return PrivateHome::make(std::filesystem::temp_directory_path());
}

void distrustPages(Surroundings& surroundings) {
    GdkDisplay* display = gdk_display_get_default();
    auto untrusted = UntrustedDisplay::make(display, surroundings.home->path());
    if (!untrusted) {
        surroundings.notes.push_back("pages can read what is typed at the greeter: " +
                                     untrusted.error());
        return;
    }
    surroundings.display = std::move(*untrusted);
    if (displayIsOpen(display))
        surroundings.notes.push_back(
            "the display lets local programs in without an authority, pages could use that to read "
            "what is typed at the greeter: start the X server with -auth, and see xhost");
}

// The toolkit takes them from a neighbour on the display otherwise, as paths if that likes.
void settleThemes() {
    g_object_set(gtk_settings_get_default(), "gtk-theme-name", "Adwaita", "gtk-icon-theme-name",
                 "Adwaita", "gtk-cursor-theme-name", "Adwaita", "gtk-modules", "", nullptr);
}

// The toolkit's own handler ends with a failure, which a service manager would answer with an agent
// anew, without a display. Nothing that needs the display can be done in order any more.
int displayGone(Display*) {
    logLine("GtkApplication : the display has gone, and so does the agent");
    _exit(0);
}

}  // namespace

tl::expected<std::unique_ptr<Application>, std::string> makeGtkApplication(
    const Resources& resources) {
    prepareGtkEnvironment();
    Surroundings surroundings;
    // Beside all that follows: it takes as long as the toolkit's own start.
    surroundings.sandbox = std::make_unique<SandboxTrial>();
    nameAuthority();
    // Open until the toolkit is on the display: one that loses its only client starts itself anew,
    // and turns the toolkit away meanwhile.
    const Handle<Display, XCloseDisplay> display(XOpenDisplay(nullptr));
    surroundings.accessibilityBus = joinAccessibilityBus(display.get());
    auto home = makeHome();
    if (!home)
        return Failure(home.error());
    surroundings.home = std::move(*home);
    if (geteuid() == 0)
        surroundings.notes.push_back(
            "runs as root, and so does the process that draws pages, whatever its sandbox: start "
            "the agent as an account of its own");
    if (!moduleGateHolds())
        surroundings.notes.push_back("other clients of the display can have libraries loaded");
    gdk_set_allowed_backends("x11");
    if (!gtk_init_check(nullptr, nullptr)) {
        const char* display = g_getenv("DISPLAY");
        return Failure(fmt::format("cannot open the display \"{}\"", display ? display : ""));
    }
    XSetIOErrorHandler(displayGone);
    auto builder = loadInterface(resources);
    if (!builder)
        return Failure(builder.error());
    settleThemes();
    applyLooks(resources);
    distrustPages(surroundings);
    return std::make_unique<GtkApplication>(std::move(*builder), std::move(surroundings));
}

}  // namespace quorl
