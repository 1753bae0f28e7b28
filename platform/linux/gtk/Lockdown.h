#pragma once

#include "GlibSupport.h"

#include <webkit2/webkit2.h>

namespace quorl {

/// Closes what could lead from a page out of the window, or show something that is not the page:
/// context menu, pop-ups, downloads, printing, file chooser, dialogs, permissions, full screen,
/// notifications, dragging. Whoever stands at a login screen has not shown who they are.
class Lockdown {
  public:
    explicit Lockdown(WebKitWebView* view);

    /// Settings of a view that are right for a login screen.
    static GObjectHandle<WebKitSettings> settings();
    /// The script that keeps file inputs and dragging out of every page.
    static void addGuardScript(WebKitUserContentManager* content);

  private:
    gboolean contextMenu(gpointer, gpointer, gpointer);
    gboolean print(gpointer);
    gboolean fileChooser(WebKitFileChooserRequest* request);
    gboolean permission(WebKitPermissionRequest* request);
    gboolean scriptDialog(WebKitScriptDialog* dialog);
    gboolean authenticate(WebKitAuthenticationRequest* request);
    gboolean fullScreen();
    gboolean notification(gpointer);
    GtkWidget* newWindow(gpointer);
    void download(WebKitDownload* download);

    SignalConnections signals_;
};

}  // namespace quorl
