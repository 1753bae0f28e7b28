#pragma once

#include "GlibSupport.h"

#include <webkit2/webkit2.h>

#include <chrono>

namespace quorl {

/// Closes what could lead from a page out of the window, or show something that is not the page:
/// context menu, pop-ups, downloads, printing, file chooser, dialogs, permissions, full screen,
/// notifications, dragging. Whoever stands at a login screen has not shown who they are.
class Lockdown {
  public:
    explicit Lockdown(WebKitWebView* view);

    /// Settings of a view that are right for a login screen.
    static GObjectHandle<WebKitSettings> settings();
    /// Our own pages are set in sizes that nobody reads from where they stand; others keep theirs.
    static void fitTextSize(WebKitWebView* view, bool ownPage);
    /// The script that keeps file inputs and dragging out of every page.
    static void addGuardScript(WebKitUserContentManager* content);

    /// A key or button has been pressed just now: no script did what follows.
    bool somebodyActs() const;

  private:
    gboolean contextMenu(gpointer, gpointer, gpointer);
    gboolean print(gpointer);
    gboolean colorChooser(WebKitColorChooserRequest* request);
    gboolean inputArrives(GdkEvent* event);
    gboolean fileChooser(WebKitFileChooserRequest* request);
    gboolean permission(WebKitPermissionRequest* request);
    gboolean scriptDialog(WebKitScriptDialog* dialog);
    gboolean authenticate(WebKitAuthenticationRequest* request);
    gboolean fullScreen();
    gboolean notification(gpointer);
    GtkWidget* newWindow(gpointer);
    void download(WebKitDownload* download);

    std::chrono::steady_clock::time_point lastInput_;
    SignalConnections signals_;
};

}  // namespace quorl
