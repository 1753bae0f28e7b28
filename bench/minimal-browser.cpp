// The least resident program that shows a page on request: a line on standard input is a URL to
// load, "hide" hides the window. It prints "ready" once, "painted" for the page's message,
// "finished URL" for a finished load. The floor that the agent's windows are measured against.
#include <webkit2/webkit2.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

struct Browser {
    GtkWidget* window = nullptr;
    WebKitWebView* view = nullptr;
};

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void loadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer) {
    if (event == WEBKIT_LOAD_FINISHED)
        say(std::string("finished ") + webkit_web_view_get_uri(view));
}

void messageReceived(WebKitUserContentManager*, WebKitJavascriptResult*, gpointer) {
    say("painted");
}

void makeView(Browser& browser) {
    WebKitWebsiteDataManager* data = webkit_website_data_manager_new_ephemeral();
    WebKitWebContext* context = webkit_web_context_new_with_website_data_manager(data);
    webkit_web_context_set_cache_model(context, WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
    webkit_web_context_set_sandbox_enabled(context, TRUE);
    WebKitUserContentManager* manager = webkit_user_content_manager_new();
    g_signal_connect(manager, "script-message-received::MACLoginAgent", G_CALLBACK(messageReceived),
                     nullptr);
    webkit_user_content_manager_register_script_message_handler(manager, "MACLoginAgent");
    browser.view = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", context,
                                                "user-content-manager", manager, nullptr));
    webkit_settings_set_hardware_acceleration_policy(webkit_web_view_get_settings(browser.view),
                                                     WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
    g_signal_connect(browser.view, "load-changed", G_CALLBACK(loadChanged), nullptr);
    gtk_container_add(GTK_CONTAINER(browser.window), GTK_WIDGET(browser.view));
}

gboolean command(GIOChannel* channel, GIOCondition, gpointer data) {
    auto& browser = *static_cast<Browser*>(data);
    gchar* line = nullptr;
    gsize end = 0;
    if (g_io_channel_read_line(channel, &line, nullptr, &end, nullptr) != G_IO_STATUS_NORMAL) {
        gtk_main_quit();
        return G_SOURCE_REMOVE;
    }
    line[end] = '\0';
    if (std::strcmp(line, "hide") == 0) {
        gtk_widget_hide(browser.window);
        webkit_web_view_load_uri(browser.view, "about:blank");
    } else {
        if (!browser.view)
            makeView(browser);
        gtk_widget_show_all(browser.window);
        webkit_web_view_load_uri(browser.view, line);
    }
    g_free(line);
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
    g_setenv("WEBKIT_DISABLE_DMABUF_RENDERER", "1", TRUE);
    // Of an address with a path the engine opens the path's folder to its processes.
    g_setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", TRUE);
    gtk_init(&argc, &argv);
    Browser browser;
    browser.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_decorated(GTK_WINDOW(browser.window), FALSE);
    gtk_window_set_default_size(GTK_WINDOW(browser.window), 896, 560);
    GIOChannel* input = g_io_channel_unix_new(0);
    g_io_add_watch(input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), command, &browser);
    say("ready");
    gtk_main();
    return 0;
}
