#include "WebKitView.h"

#include "AsyncCall.h"
#include "Log.h"

#include <algorithm>
#include <utility>

namespace quorl {
namespace {

// The engine goes on after the element that had the focus last, which leaves the page at once when
// that was its last.
constexpr const char* focusEndScript = R"js((() => {
    const all = [...document.querySelectorAll('a[href], button, input, select, textarea, iframe,' +
                                              '[tabindex]')]
        .filter((e) => e.tabIndex >= 0 && !e.disabled && e.getClientRects().length > 0);
    all.at(%END%)?.focus();
})())js";

constexpr const char* noPage = "no page has been loaded";

ScriptResult toResult(JSCValue* value) {
    if (jsc_value_is_undefined(value) || jsc_value_is_null(value))
        return std::nullopt;
    if (jsc_value_is_boolean(value))
        return std::string(jsc_value_to_boolean(value) ? "1" : "0");
    const GCharHandle text(jsc_value_to_string(value));
    return std::string(text ? text.get() : "");
}

}  // namespace

WebKitView::WebKitView(WebViewConfiguration configuration, Surroundings surroundings)
    : configuration_(std::move(configuration)), surroundings_(std::move(surroundings)) {}

WebKitView::~WebKitView() {
    if (engine_)
        disconnectView();
}

void WebKitView::startEngine() {
    warming_.reset();
    if (engine_)
        return;
    const auto certificates =
        delegate().didReceiveAuthenticationChallenge(AuthenticationMethod::serverTrust) ==
                ChallengeAnswer::useCredential
            ? CertificatePolicy::allowAny
            : CertificatePolicy::restrict;
    engine_.emplace(certificates, configuration_.scriptMessageHandlerName);
    cookies_.emplace(engine_->cookies(), surroundings_.supportDirectory + "/cookies.json");
    connectView();
}

void WebKitView::disconnectView() {
    signals_.disconnectAll();
    lockdown_.reset();
    readable_.reset();
    if (surroundings_.window)
        surroundings_.window->setWebWidget(nullptr);
}

void WebKitView::connectView() {
    WebKitWebView* view = engine_->view();
    lockdown_.emplace(view);

    signals_.connect<&WebKitView::decidePolicy>(view, "decide-policy", this);
    signals_.connect<&WebKitView::loadChanged>(view, "load-changed", this);
    signals_.connect<&WebKitView::loadFailed>(view, "load-failed", this);
    signals_.connect<&WebKitView::certificateRefused>(view, "load-failed-with-tls-errors", this);
    signals_.connect<&WebKitView::focusArrives>(view, "focus", this);
    signals_.connect<&WebKitView::drawn>(view, "draw", this);
    signals_.connect<&WebKitView::progressChanged>(view, "notify::estimated-load-progress", this);
    signals_.connect<&WebKitView::processTerminated>(view, "web-process-terminated", this);
    const std::string channel = configuration_.scriptMessageHandlerName;
    signals_.connect<&WebKitView::messageReceived>(
        engine_->content(), ("script-message-received::" + channel).c_str(), this);
    webkit_user_content_manager_register_script_message_handler(engine_->content(),
                                                                channel.c_str());
    signals_.connect<&WebKitView::announcementReceived>(
        engine_->content(),
        (std::string("script-message-received::") + WebKitEngine::readerChannel).c_str(), this);
    webkit_user_content_manager_register_script_message_handler(engine_->content(),
                                                                WebKitEngine::readerChannel);
    for (const std::string& source : userScripts_)
        installUserScript(source);
    if (surroundings_.window)
        surroundings_.window->setWebWidget(GTK_WIDGET(view));
    readable_.emplace(GTK_WIDGET(view), [this] { tellFocus(); });
}

void WebKitView::evaluateJavaScript(const std::string& script, ScriptCompletion completion) {
    if (!used_ || due_ != Renewal::none) {
        if (completion)
            runSoon([completion = std::move(completion)] { completion(tl::unexpected(noPage)); });
        return;
    }
    // A value that nobody wants need not be one that can be handed over.
    const std::string source = completion ? script : script + "\n;undefined";
    webkit_web_view_evaluate_javascript(
        engine_->view(), source.c_str(), static_cast<gssize>(source.size()), nullptr, nullptr,
        nullptr, AsyncCall::callback(),
        AsyncCall::data([alive = std::weak_ptr(alive_), completion = std::move(completion)](
                            GObject* view, GAsyncResult* result) {
            GError* error = nullptr;
            const GObjectHandle<JSCValue> value(
                webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(view), result, &error));
            const GErrorHandle reason(error);
            if (alive.expired() || !completion)
                return;
            completion(value ? toResult(value.get())
                             : ScriptResult(tl::unexpected(reason->message)));
        }));
}

// To draw itself the engine waits for the page's process, half a second long where that has begun
// with the next page. The blank page has nothing that is worth it.
gboolean WebKitView::drawn(cairo_t*) {
    return tracker_.awaitsOwnPage() && isBlankPage(committedURL_) ? TRUE : FALSE;
}

gboolean WebKitView::focusArrives(GtkDirectionType direction) {
    GtkWidget* view = GTK_WIDGET(engine_->view());
    const bool backward = direction == GTK_DIR_TAB_BACKWARD;
    if (gtk_widget_has_focus(view) || !(backward || direction == GTK_DIR_TAB_FORWARD))
        return FALSE;
    gtk_widget_grab_focus(view);
    std::string script = focusEndScript;
    script.replace(script.find("%END%"), 5, backward ? "-1" : "0");
    evaluateJavaScript(script, nullptr);
    return TRUE;
}

void WebKitView::addUserScript(const std::string& source) {
    // A script that is there already runs in every page to come; once more would change nothing
    // but the time that each page takes.
    if (std::ranges::find(userScripts_, source) != userScripts_.end())
        return;
    userScripts_.push_back(source);
    if (engine_)
        installUserScript(source);
}

void WebKitView::installUserScript(const std::string& source) {
    WebKitUserScript* script =
        webkit_user_script_new(source.c_str(), WEBKIT_USER_CONTENT_INJECT_ALL_FRAMES,
                               WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_END, nullptr, nullptr);
    webkit_user_content_manager_add_script(engine_->content(), script);
    webkit_user_script_unref(script);
}

void WebKitView::getAllCookies(CookiesCompletion completion) {
    if (cookies_)
        cookies_->list(std::move(completion));
    else
        runSoon([completion = std::move(completion)] { completion({}); });
}

void WebKitView::deleteCookie(const Cookie& cookie, std::function<void()> completion) {
    if (cookies_)
        cookies_->remove(cookie, std::move(completion));
    else if (completion)
        runSoon(std::move(completion));
}

bool WebKitView::saveCookies(std::chrono::milliseconds limit) {
    if (!cookiesRestored_)
        return true;
    bool saved = false, late = false;
    OneShotTimer timer;
    timer.start(limit, [&late] { late = true; });
    const auto waiting = std::make_shared<bool*>(&saved);
    cookies_->save([waiting] {
        if (*waiting)
            **waiting = true;
    });
    savingCookies_ = true;
    while (!saved && !late)
        g_main_context_iteration(nullptr, TRUE);
    savingCookies_ = false;
    if (saved && std::exchange(renewalHeldBack_, false))
        runSoon([this] { finishRenewal(); });
    *waiting = nullptr;  // the answer may still come
    if (!saved)
        logLine("WebKitView : the cookies did not come in time and are kept as they were");
    return saved;
}

void WebKitView::setAllowsBackForwardNavigationGestures(bool allowed) {
    if (engine_)
        webkit_settings_set_enable_back_forward_navigation_gestures(
            webkit_web_view_get_settings(engine_->view()), allowed);
}

void WebKitView::setNeedsDisplay() {
    if (engine_)
        gtk_widget_queue_draw(GTK_WIDGET(engine_->view()));
}

void WebKitView::runSoon(std::function<void()> action) {
    using Guarded = std::pair<std::weak_ptr<const bool>, std::function<void()>>;
    auto guarded = std::make_unique<Guarded>(alive_, std::move(action));
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer data) {
            const auto& [alive, run] = *static_cast<Guarded*>(data);
            if (!alive.expired())
                run();
            return G_SOURCE_REMOVE;
        },
        guarded.release(),
        [](gpointer data) { std::unique_ptr<Guarded>(static_cast<Guarded*>(data)); });
}

std::string WebKitView::currentURL() const {
    const char* url = engine_ ? webkit_web_view_get_uri(engine_->view()) : nullptr;
    return url ? url : "";
}

}  // namespace quorl
