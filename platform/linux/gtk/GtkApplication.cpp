#include "GtkApplication.h"

#include "Environment.h"
#include "GlibRunLoop.h"
#include "GtkBrowserWindow.h"
#include "GtkLoginPanel.h"
#include "Log.h"
#include "SystemPaths.h"
#include "WebKitView.h"

#include <fmt/format.h>
#include <glib-unix.h>

#include <optional>
#include <vector>

namespace quorl {
namespace {

using MainLoop = Handle<GMainLoop, g_main_loop_unref>;
using Builder = GObjectHandle<GtkBuilder>;

class GtkApplication final : public Application {
  public:
    explicit GtkApplication(Builder builder)
        : builder_(std::move(builder)), mainLoop_(g_main_loop_new(nullptr, FALSE)) {
        if (gtk_builder_get_object(builder_.get(), "loginPanel"))
            panel_.emplace(builder_.get());
        if (gtk_builder_get_object(builder_.get(), "customBrowserWindow"))
            window_.emplace(builder_.get());
        for (const int signal : {SIGTERM, SIGINT})
            signals_.emplace_back(g_unix_signal_add(signal, &GtkApplication::endRequested, this));
    }

    LoginPanel* loginPanel() override { return panel_ ? &*panel_ : nullptr; }
    BrowserWindow* browserWindow() override { return window_ ? &*window_ : nullptr; }
    void setLinkAction(std::function<void()> action) override {
        if (panel_)
            panel_->setLinkAction(std::move(action));
    }
    std::unique_ptr<WebView> makeWebView(const WebViewConfiguration& configuration) override {
        return std::make_unique<WebKitView>(
            configuration,
            WebKitView::Surroundings{.window = window_ ? &*window_ : nullptr,
                                     .supportDirectory = systemPaths().supportDirectory()});
    }
    void hideMenuBar() override { logLine("hideMenuBar : this desktop has no menu bar to hide"); }
    RunLoop& mainRunLoop() override { return runLoop_; }
    void setWillTerminateHandler(std::function<void()> handler) override {
        willTerminate_ = std::move(handler);
    }
    int run() override {
        if (!endRequested_)
            g_main_loop_run(mainLoop_.get());
        if (willTerminate_)
            willTerminate_();
        return 0;
    }

  private:
    static gboolean endRequested(gpointer self) {
        auto* application = static_cast<GtkApplication*>(self);
        application->endRequested_ = true;
        g_main_loop_quit(application->mainLoop_.get());
        return G_SOURCE_CONTINUE;
    }

    Builder builder_;
    MainLoop mainLoop_;
    GlibRunLoop runLoop_;
    std::optional<GtkLoginPanel> panel_;
    std::optional<GtkBrowserWindow> window_;
    std::vector<GlibSource> signals_;
    std::function<void()> willTerminate_;
    bool endRequested_ = false;
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

}  // namespace

tl::expected<std::unique_ptr<Application>, std::string> makeGtkApplication(
    const Resources& resources) {
    prepareGtkEnvironment();
    gdk_set_allowed_backends("x11");
    if (!gtk_init_check(nullptr, nullptr)) {
        const char* display = g_getenv("DISPLAY");
        return Failure(fmt::format("cannot open the display \"{}\"", display ? display : ""));
    }
    auto builder = loadInterface(resources);
    if (!builder)
        return Failure(builder.error());
    applyLooks(resources);
    return std::make_unique<GtkApplication>(std::move(*builder));
}

}  // namespace quorl
