// The least resident program that shows a page on request: a line on standard input is a URL to
// load, "hide" hides the window. It prints "ready" once, "painted" for the page's message,
// "finished URL" for a finished load. The floor that the agent's windows are measured against.
#include <glib-unix.h>
#include <webkit2/webkit2.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace {

GtkWidget* window = nullptr;
WebKitWebView* view = nullptr;

void loadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer) {
    if (event == WEBKIT_LOAD_FINISHED)
        std::printf("finished %s\n", webkit_web_view_get_uri(view));
}

void messageReceived(WebKitUserContentManager*, WebKitJavascriptResult*, gpointer) {
    std::puts("painted");
}

void makeView() {
    WebKitWebContext* context = webkit_web_context_new_with_website_data_manager(
        webkit_website_data_manager_new_ephemeral());
    webkit_web_context_set_cache_model(context, WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
    webkit_web_context_set_sandbox_enabled(context, TRUE);
    view = WEBKIT_WEB_VIEW(webkit_web_view_new_with_context(context));
    WebKitUserContentManager* manager = webkit_web_view_get_user_content_manager(view);
    g_signal_connect(manager, "script-message-received::MACLoginAgent", G_CALLBACK(messageReceived),
                     nullptr);
    webkit_user_content_manager_register_script_message_handler(manager, "MACLoginAgent");
    webkit_settings_set_hardware_acceleration_policy(webkit_web_view_get_settings(view),
                                                     WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
    g_signal_connect(view, "load-changed", G_CALLBACK(loadChanged), nullptr);
    gtk_container_add(GTK_CONTAINER(window), GTK_WIDGET(view));
}

// One line is written at a time, so none is left behind in the buffer.
gboolean command(gint, GIOCondition, gpointer) {
    std::string line;
    if (!std::getline(std::cin, line)) {
        gtk_main_quit();
        return G_SOURCE_REMOVE;
    }
    if (!view)
        makeView();
    if (line == "hide")
        gtk_widget_hide(window);
    else
        gtk_widget_show_all(window);
    webkit_web_view_load_uri(view, line == "hide" ? "about:blank" : line.c_str());
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
    g_setenv("WEBKIT_DISABLE_DMABUF_RENDERER", "1", TRUE);
    // Of an address with a path the engine opens the path's folder to its processes.
    g_setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", TRUE);
    gtk_init(&argc, &argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_decorated(GTK_WINDOW(window), FALSE);
    gtk_window_set_default_size(GTK_WINDOW(window), 896, 560);
    g_unix_fd_add(0, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), command, nullptr);
    std::puts("ready");
    gtk_main();
    return 0;
}
