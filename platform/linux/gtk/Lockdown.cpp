#include "Lockdown.h"

#include "Log.h"

#include <gtk/gtk.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

namespace quorl {
namespace {

// In a world of its own, where no page can take it apart. Mutation events are gone, so an observer
// removes file inputs as they appear or turn into one.
constexpr const char* guardScript = R"js((() => {
    const inputs = document.getElementsByTagNameNS('*', 'input');
    const sweep = () => {
        for (const input of [...inputs])
            if ((input.getAttribute('type') || '').toLowerCase() === 'file')
                input.remove();
    };
    new MutationObserver(sweep).observe(document, {childList: true, subtree: true, attributes: true,
                                                   attributeFilter: ['type']});
    sweep();
    for (const event of ['dragstart', 'dragover', 'drop'])
        window.addEventListener(event, (e) => e.preventDefault(), true);
})();)js";

constexpr const char* guardWorld = "QUORLLoginAgentGuard";

constexpr guint smallestOwnText = 14;
constexpr std::chrono::seconds inputEffect{1};

using Features = Handle<WebKitFeatureList, webkit_feature_list_unref>;

void turnOff(WebKitSettings* settings, std::initializer_list<std::string_view> names) {
    const Features all(webkit_settings_get_all_features());
    for (gsize i = 0; i < webkit_feature_list_get_length(all.get()); ++i) {
        WebKitFeature* feature = webkit_feature_list_get(all.get(), i);
        if (std::ranges::find(names, webkit_feature_get_identifier(feature)) != names.end())
            webkit_settings_set_feature_enabled(settings, feature, FALSE);
    }
}

}  // namespace

Lockdown::Lockdown(WebKitWebView* view) {
    // What a page may not have it does not get, without a question to whoever stands there.
    gtk_drag_dest_unset(GTK_WIDGET(view));
    gtk_drag_source_unset(GTK_WIDGET(view));
    signals_.connect<&Lockdown::contextMenu>(view, "context-menu", this);
    signals_.connect<&Lockdown::newWindow>(view, "create", this);
    signals_.connect<&Lockdown::print>(view, "print", this);
    signals_.connect<&Lockdown::fileChooser>(view, "run-file-chooser", this);
    signals_.connect<&Lockdown::colorChooser>(view, "run-color-chooser", this);
    signals_.connect<&Lockdown::inputArrives>(view, "event", this);
    signals_.connect<&Lockdown::permission>(view, "permission-request", this);
    signals_.connect<&Lockdown::scriptDialog>(view, "script-dialog", this);
    signals_.connect<&Lockdown::authenticate>(view, "authenticate", this);
    signals_.connect<&Lockdown::fullScreen>(view, "enter-fullscreen", this);
    signals_.connect<&Lockdown::notification>(view, "show-notification", this);
    signals_.connect<&Lockdown::download>(webkit_web_view_get_context(view), "download-started",
                                          this);
}

GObjectHandle<WebKitSettings> Lockdown::settings() {
    GObjectHandle<WebKitSettings> settings(webkit_settings_new());
    WebKitSettings* all = settings.get();
    webkit_settings_set_hardware_acceleration_policy(all,
                                                     WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
    webkit_settings_set_enable_webgl(all, FALSE);
    webkit_settings_set_enable_developer_extras(all, FALSE);
    webkit_settings_set_enable_fullscreen(all, FALSE);
    webkit_settings_set_enable_page_cache(all, FALSE);
    webkit_settings_set_enable_media_stream(all, FALSE);
    webkit_settings_set_enable_back_forward_navigation_gestures(all, FALSE);
    webkit_settings_set_enable_caret_browsing(all, FALSE);
    webkit_settings_set_javascript_can_open_windows_automatically(all, FALSE);
    webkit_settings_set_javascript_can_access_clipboard(all, FALSE);
    webkit_settings_set_allow_file_access_from_file_urls(all, FALSE);
    webkit_settings_set_allow_universal_access_from_file_urls(all, FALSE);
    webkit_settings_set_enable_smooth_scrolling(all, FALSE);
    // Nothing that a sign-in needs, and much of what attacks on browsers went through.
    webkit_settings_set_enable_media(all, FALSE);
    webkit_settings_set_enable_mediasource(all, FALSE);
    webkit_settings_set_enable_encrypted_media(all, FALSE);
    webkit_settings_set_enable_media_capabilities(all, FALSE);
    webkit_settings_set_enable_webaudio(all, FALSE);
    webkit_settings_set_enable_webrtc(all, FALSE);
    turnOff(all, {"DNSPrefetchingEnabled", "GamepadsEnabled", "HyperlinkAuditingEnabled",
                  "LinkPrefetchEnabled", "NotificationsEnabled", "PDFJSViewerEnabled",
                  "PeerConnectionEnabled", "PushAPIEnabled", "SpeechRecognitionEnabled",
                  "SpeechSynthesisAPIEnabled"});
    return settings;
}

void Lockdown::fitTextSize(WebKitWebView* view, bool ownPage) {
    // The error box is set in 10 px.
    webkit_settings_set_minimum_font_size(webkit_web_view_get_settings(view),
                                          ownPage ? smallestOwnText : 0);
}

void Lockdown::addGuardScript(WebKitUserContentManager* content) {
    WebKitUserScript* script = webkit_user_script_new_for_world(
        guardScript, WEBKIT_USER_CONTENT_INJECT_ALL_FRAMES,
        WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START, guardWorld, nullptr, nullptr);
    webkit_user_content_manager_add_script(content, script);
    webkit_user_script_unref(script);
}

gboolean Lockdown::contextMenu(gpointer, gpointer, gpointer) {
    return TRUE;
}

gboolean Lockdown::print(gpointer) {
    return TRUE;
}

gboolean Lockdown::fileChooser(WebKitFileChooserRequest* request) {
    webkit_file_chooser_request_cancel(request);
    return TRUE;
}

gboolean Lockdown::colorChooser(WebKitColorChooserRequest* request) {
    webkit_color_chooser_request_cancel(request);
    return TRUE;
}

gboolean Lockdown::inputArrives(GdkEvent* event) {
    switch (gdk_event_get_event_type(event)) {
        case GDK_KEY_PRESS:
        case GDK_BUTTON_PRESS:
        case GDK_BUTTON_RELEASE:
        case GDK_TOUCH_END:
            lastInput_ = std::chrono::steady_clock::now();
            break;
        default:  // one of the toolkit's forty others
            return GDK_EVENT_PROPAGATE;
    }
    // The keys that open the toolkit's chooser of pictographs, in any text field.
    guint key = 0;
    GdkModifierType held{};
    gdk_event_get_keyval(event, &key);
    gdk_event_get_state(event, &held);
    const bool chooser = key == GDK_KEY_period || key == GDK_KEY_semicolon;
    return chooser && (held & GDK_CONTROL_MASK) ? GDK_EVENT_STOP : GDK_EVENT_PROPAGATE;
}

bool Lockdown::somebodyActs() const {
    return std::chrono::steady_clock::now() - lastInput_ < inputEffect;
}

gboolean Lockdown::permission(WebKitPermissionRequest* request) {
    webkit_permission_request_deny(request);
    return TRUE;
}

gboolean Lockdown::scriptDialog(WebKitScriptDialog* dialog) {
    switch (webkit_script_dialog_get_dialog_type(dialog)) {
        case WEBKIT_SCRIPT_DIALOG_ALERT:
            break;
        case WEBKIT_SCRIPT_DIALOG_CONFIRM:
            webkit_script_dialog_confirm_set_confirmed(dialog, FALSE);
            break;
        case WEBKIT_SCRIPT_DIALOG_PROMPT:
            webkit_script_dialog_prompt_set_text(dialog, nullptr);
            break;
        case WEBKIT_SCRIPT_DIALOG_BEFORE_UNLOAD_CONFIRM:
            // A page cannot hold the window.
            webkit_script_dialog_confirm_set_confirmed(dialog, TRUE);
            break;
    }
    return TRUE;
}

gboolean Lockdown::authenticate(WebKitAuthenticationRequest* request) {
    webkit_authentication_request_authenticate(request, nullptr);
    return TRUE;
}

gboolean Lockdown::fullScreen() {
    return TRUE;
}

gboolean Lockdown::notification(gpointer) {
    return TRUE;
}

GtkWidget* Lockdown::newWindow(gpointer) {
    logLine("WebKitView : a page asked for a window of its own, which it does not get");
    return nullptr;
}

void Lockdown::download(WebKitDownload* download) {
    logLine("WebKitView : a download is refused");
    webkit_download_cancel(download);
}

}  // namespace quorl
