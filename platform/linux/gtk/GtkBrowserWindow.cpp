#include "GtkBrowserWindow.h"

#include "ScreenGeometry.h"

#include <algorithm>
#include <cmath>

namespace quorl {
namespace {

constexpr int stripReach = 120;
constexpr std::chrono::seconds waitWithoutWords{5};
// Something is to be seen of a load that has only begun.
constexpr double leastProgress = 0.05;
constexpr int smallestWidth = 320;
constexpr int smallestHeight = 240;
constexpr int iconSize = 16;

void setButtonWords(GtkWidget* button, const std::string& words) {
    gtk_widget_set_tooltip_text(button, words.c_str());
    atk_object_set_name(gtk_widget_get_accessible(button), words.c_str());
}

// What was copied or marked in the window; what another program holds is not ours to take.
void forgetCopiedText(GtkWindow* window) {
    for (const GdkAtom selection : {GDK_SELECTION_CLIPBOARD, GDK_SELECTION_PRIMARY}) {
        // Whoever once asked us for a selection is known here as well.
        GdkWindow* holder = gdk_selection_owner_get(selection);
        if (holder && gdk_window_get_window_type(holder) != GDK_WINDOW_FOREIGN)
            gtk_clipboard_clear(gtk_widget_get_clipboard(GTK_WIDGET(window), selection));
    }
}

}  // namespace

GtkBrowserWindow::GtkBrowserWindow(GtkBuilder* builder)
    : window_(GTK_WINDOW(gtk_builder_get_object(builder, "customBrowserWindow"))),
      content_(GTK_OVERLAY(gtk_builder_get_object(builder, "browserContent"))),
      strip_(GTK_WIDGET(gtk_builder_get_object(builder, "titleStrip"))),
      title_(GTK_LABEL(gtk_builder_get_object(builder, "titleLabel"))),
      closeButton_(GTK_WIDGET(gtk_builder_get_object(builder, "closeButton"))),
      zoomButton_(GTK_WIDGET(gtk_builder_get_object(builder, "zoomButton"))),
      progressBox_(GTK_WIDGET(gtk_builder_get_object(builder, "progressBox"))),
      progressBar_(GTK_PROGRESS_BAR(gtk_builder_get_object(builder, "progressBar"))),
      waitingBand_(GTK_WIDGET(gtk_builder_get_object(builder, "waitingBand"))),
      waitingLabel_(GTK_LABEL(gtk_builder_get_object(builder, "waitingLabel"))),
      idle_(window_, [this] {
          if (delegate_)
              delegate_->windowWasIdle();
      }) {
    gtk_window_get_default_size(window_, &place_.width, &place_.height);
    GdkGeometry limits{};
    limits.min_width = smallestWidth;
    limits.min_height = smallestHeight;
    gtk_window_set_geometry_hints(window_, nullptr, &limits, GDK_HINT_MIN_SIZE);
    setProgress(0);
    gtk_widget_hide(progressBox_);
    // Nothing of them is seen: they are there to be spoken of.
    for (GtkWidget*& notification : notifications_) {
        notification = gtk_label_new(nullptr);
        AtkObject* accessible = gtk_widget_get_accessible(notification);
        atk_object_set_role(accessible, ATK_ROLE_NOTIFICATION);
        // A first name is no change of name, and readers would never hear of it.
        atk_object_set_name(accessible, "");
        gtk_overlay_add_overlay(content_, notification);
        gtk_overlay_set_overlay_pass_through(content_, notification, TRUE);
    }
    // A screen reader would speak of each of its steps.
    atk_object_set_role(gtk_widget_get_accessible(GTK_WIDGET(progressBar_)),
                        ATK_ROLE_REDUNDANT_OBJECT);
    gtk_widget_add_events(strip_, GDK_BUTTON_PRESS_MASK | GDK_BUTTON1_MOTION_MASK);

    signals_.connect<&GtkBrowserWindow::placeChild>(content_, "get-child-position", this);
    signals_.connect<&GtkBrowserWindow::configured>(window_, "configure-event", this);
    signals_.connect<&GtkBrowserWindow::mapped>(window_, "map-event", this);
    signals_.connect<&GtkBrowserWindow::keyPressed>(window_, "key-press-event", this);
    signals_.connect<&GtkBrowserWindow::keyReleased>(window_, "key-release-event", this);
    signals_.connect<&GtkBrowserWindow::deleteRequested>(window_, "delete-event", this);
    signals_.connect<&GtkBrowserWindow::stripPressed>(strip_, "button-press-event", this);
    signals_.connect<&GtkBrowserWindow::stripDragged>(strip_, "motion-notify-event", this);
    signals_.connect<&GtkBrowserWindow::close>(closeButton_, "clicked", this);
    signals_.connect<&GtkBrowserWindow::zoom>(zoomButton_, "clicked", this);
    signals_.connect<&GtkBrowserWindow::followTextSize>(title_, "style-updated", this);
    followTextSize();
    for (const char* change : {"monitors-changed", "size-changed"})
        signals_.connect<&GtkBrowserWindow::monitorsChanged>(
            gtk_widget_get_screen(GTK_WIDGET(window_)), change, this);
}

GtkBrowserWindow::~GtkBrowserWindow() {
    signals_.disconnectAll();
    gtk_widget_destroy(GTK_WIDGET(window_));
}

void GtkBrowserWindow::setWebWidget(GtkWidget* widget) {
    webWidget_ = widget;
    if (!widget)
        return;
    gtk_overlay_add_overlay(content_, widget);
    gtk_overlay_reorder_overlay(content_, waitingBand_, -1);
    gtk_widget_show(widget);
    gtk_widget_grab_focus(widget);
}

// Readers speak of a notification when it comes to be shown, by the words that it has when they get
// to it; so the next words have another one.
void GtkBrowserWindow::announce(const std::string& words, Announced how) {
    if (words.empty() || !isVisible() ||
        (how == Announced::once && !saidOnce_.insert(words).second))
        return;
    hideNotifications();
    GtkWidget* notification = notifications_[announcements_++ % notifications_.size()];
    atk_object_set_name(gtk_widget_get_accessible(notification), words.c_str());
    gtk_widget_show(notification);
}

void GtkBrowserWindow::hideNotifications() {
    for (GtkWidget* notification : notifications_)
        gtk_widget_hide(notification);
}

void GtkBrowserWindow::setWords(const WindowWords& words) {
    setButtonWords(closeButton_, words.close);
    setButtonWords(zoomButton_, words.maximize);
}

void GtkBrowserWindow::setTitle(const std::string& title) {
    gtk_window_set_title(window_, title.c_str());
    gtk_label_set_text(title_, title.c_str());
}

bool GtkBrowserWindow::isVisible() const {
    return gtk_widget_get_visible(GTK_WIDGET(window_));
}

Rect GtkBrowserWindow::frame() const {
    const GdkRectangle monitor = loginMonitor();
    const GdkRectangle place{place_.x - monitor.x, place_.y - monitor.y, place_.width,
                             place_.height};
    return fromBottomLeft(place, monitor.height);
}

void GtkBrowserWindow::prepareForLoginWindow() {
    gtk_window_set_keep_above(window_, TRUE);
    gtk_window_stick(window_);
    gtk_window_set_skip_taskbar_hint(window_, TRUE);
    gtk_window_set_skip_pager_hint(window_, TRUE);
}

void GtkBrowserWindow::setFrame(const Rect& frame) {
    const GdkRectangle monitor = loginMonitor();
    GdkRectangle target = fromTopLeft(frame, monitor.height);
    target.x += monitor.x;
    target.y += monitor.y;
    placeBeforeZoom_ = {};
    place(target);
}

void GtkBrowserWindow::center() {
    const GdkRectangle monitor = loginMonitor();
    const int width = std::min(place_.width, monitor.width);
    const int height = std::min(place_.height, monitor.height);
    place({monitor.x + (monitor.width - width) / 2, monitor.y + (monitor.height - height) / 2,
           width, height});
}

void GtkBrowserWindow::place(const GdkRectangle& target) {
    gtk_window_move(window_, target.x, target.y);
    gtk_window_resize(window_, target.width, target.height);
    settled(target);
}

void GtkBrowserWindow::settled(const GdkRectangle& now) {
    const bool resized = now.width != place_.width || now.height != place_.height;
    place_ = now;
    if (resized && delegate_)
        delegate_->windowDidResize();
}

void GtkBrowserWindow::orderFrontRegardless() {
    gtk_widget_show(GTK_WIDGET(window_));
    gdk_window_raise(gtk_widget_get_window(GTK_WIDGET(window_)));
}

void GtkBrowserWindow::makeKeyWindow() {
    // A window manager maps the window later; it is asked again then.
    wantsFocus_ = true;
    if (webWidget_)
        gtk_widget_grab_focus(webWidget_);
    focus_.take(window_);
}

void GtkBrowserWindow::orderOut() {
    wantsFocus_ = false;
    focus_.giveBack();
    hideNotifications();
    saidOnce_.clear();
    gtk_widget_hide(GTK_WIDGET(window_));
    forgetCopiedText(window_);
}

void GtkBrowserWindow::close() {
    if (delegate_)
        delegate_->windowWillClose();
    orderOut();
}

void GtkBrowserWindow::layOut(const Rect& progressBar, const Rect& webView) {
    progressRect_ = progressBar;
    webRect_ = webView;
    gtk_widget_queue_resize(GTK_WIDGET(content_));
}

void GtkBrowserWindow::setProgress(double value) {
    progress_ = value;
    gtk_progress_bar_set_fraction(progressBar_, std::clamp(value / 100, leastProgress, 1.0));
}

void GtkBrowserWindow::setProgressHidden(bool hidden) {
    gtk_widget_set_visible(progressBox_, !hidden);
}

void GtkBrowserWindow::awaitPage(const std::string& words) {
    gtk_widget_hide(waitingBand_);
    patience_.stop();
    if (words.empty())
        return;
    gtk_label_set_text(waitingLabel_, words.c_str());
    patience_.start(waitWithoutWords, [this] { gtk_widget_show(waitingBand_); });
}

void GtkBrowserWindow::zoom() {
    if (placeBeforeZoom_.width == 0) {
        placeBeforeZoom_ = place_;
        place(loginWorkArea());
    } else {
        place(placeBeforeZoom_);
        placeBeforeZoom_ = {};
    }
}

gboolean GtkBrowserWindow::configured(GdkEvent* event) {
    // Before GTK allocates the children for the new size, so that they never stand in old places.
    const GdkEventConfigure& now = event->configure;
    settled({now.x, now.y, now.width, now.height});
    return GDK_EVENT_PROPAGATE;
}

gboolean GtkBrowserWindow::mapped(GdkEvent*) {
    if (std::exchange(wantsFocus_, false))
        focus_.take(window_);
    return GDK_EVENT_PROPAGATE;
}

// A Tab that leaves the page comes twice: the engine moves the focus out, and then hands back the
// key as one that it had no use for. Escape in the page is the page's.
gboolean GtkBrowserWindow::keyPressed(GdkEvent* event) {
    const GdkEventKey& key = event->key;
    const bool inPage = gtk_window_get_focus(window_) == webWidget_;
    escapeIsDown_ = key.keyval == GDK_KEY_Escape && !inPage;
    if (escapeIsDown_)
        return GDK_EVENT_STOP;
    if (key.keyval != GDK_KEY_Tab && key.keyval != GDK_KEY_ISO_Left_Tab)
        return GDK_EVENT_PROPAGATE;
    const bool handedBack = key.time == std::exchange(lastTab_, key.time);
    if (!handedBack || !webWidget_ || inPage)
        return GDK_EVENT_PROPAGATE;
    // The view lets the next key that it gets pass by the page, and takes that for this one.
    gtk_widget_event(webWidget_, event);
    return GDK_EVENT_STOP;
}

// When it is let go: a window that closes while the key is down loses the first key that is typed
// into the next one.
gboolean GtkBrowserWindow::keyReleased(GdkEvent* event) {
    if (event->key.keyval != GDK_KEY_Escape || !std::exchange(escapeIsDown_, false))
        return GDK_EVENT_PROPAGATE;
    close();
    return GDK_EVENT_STOP;
}

gboolean GtkBrowserWindow::deleteRequested(GdkEvent*) {
    close();
    return GDK_EVENT_STOP;
}

// The strip's buttons hand back what they have no use for: the second press of two in a row, of
// which the first may have closed the window before.
gboolean GtkBrowserWindow::stripPressed(GdkEvent* event) {
    if (event->button.button != GDK_BUTTON_PRIMARY || gtk_get_event_widget(event) != strip_)
        return GDK_EVENT_PROPAGATE;
    drag_.reset();
    if (event->type == GDK_2BUTTON_PRESS)
        zoom();
    else if (event->type == GDK_BUTTON_PRESS)
        drag_ = {event->button.x_root - place_.x, event->button.y_root - place_.y};
    return GDK_EVENT_STOP;
}

// Moved by ourselves: the toolkit's own way takes hold of the pointer, and keeps it when the button
// has been released meanwhile.
gboolean GtkBrowserWindow::stripDragged(GdkEvent* event) {
    const GdkEventMotion& motion = event->motion;
    if (!drag_ || !(motion.state & GDK_BUTTON1_MASK))
        return GDK_EVENT_PROPAGATE;
    placeBeforeZoom_ = {};
    // The strip stays within reach, or nobody could close the window.
    const GdkRectangle monitor = loginMonitor();
    const int x = static_cast<int>(std::lround(motion.x_root - drag_->x));
    const int y = static_cast<int>(std::lround(motion.y_root - drag_->y));
    place({std::clamp(x, monitor.x + stripReach - place_.width,
                      monitor.x + monitor.width - stripReach),
           std::clamp(y, monitor.y, monitor.y + monitor.height - pagePlace().y), place_.width,
           place_.height});
    return GDK_EVENT_STOP;
}

gboolean GtkBrowserWindow::placeChild(GtkWidget* child, GdkRectangle* allocation) {
    if (child == strip_)
        *allocation = {0, 0, place_.width, pagePlace().y};
    else if (std::ranges::find(notifications_, child) != notifications_.end())
        *allocation = {0, 0, 1, 1};
    else if (child == progressBox_)
        *allocation = progressPlace();
    else if (child == webWidget_)
        *allocation = pagePlace();
    else if (child == waitingBand_)
        *allocation = waitingPlace();
    else
        return FALSE;
    return TRUE;
}

void GtkBrowserWindow::followTextSize() {
    for (GtkWidget* button : {closeButton_, zoomButton_})
        gtk_image_set_pixel_size(GTK_IMAGE(gtk_bin_get_child(GTK_BIN(button))),
                                 static_cast<int>(std::lround(iconSize * textScale())));
    gtk_widget_queue_resize(GTK_WIDGET(content_));
}

// Below the strip, which grows with the desktop's text size at the page's cost.
GdkRectangle GtkBrowserWindow::pagePlace() const {
    GdkRectangle page = fromTopLeft(webRect_, place_.height);
    const int growth = static_cast<int>(std::lround(page.y * (textScale() - 1)));
    page.y += growth;
    page.height = std::max(1, page.height - growth);
    return page;
}

GdkRectangle GtkBrowserWindow::progressPlace() const {
    GdkRectangle bar = fromTopLeft(progressRect_, place_.height);
    bar.y = pagePlace().y - bar.height;
    return bar;
}

// Over the upper edge of the page, as a part of the strip that has come down.
GdkRectangle GtkBrowserWindow::waitingPlace() const {
    int height = 0;
    gtk_widget_get_preferred_height_for_width(waitingBand_, place_.width, nullptr, &height);
    const GdkRectangle page = pagePlace();
    return {page.x, page.y, page.width, std::min(height, page.height)};
}

void GtkBrowserWindow::monitorsChanged() {
    if (!isVisible())
        return;
    if (placeBeforeZoom_.width == 0) {
        center();
        return;
    }
    const GdkRectangle area = loginWorkArea();
    placeBeforeZoom_.width = std::min(placeBeforeZoom_.width, area.width);
    placeBeforeZoom_.height = std::min(placeBeforeZoom_.height, area.height);
    placeBeforeZoom_.x = area.x + (area.width - placeBeforeZoom_.width) / 2;
    placeBeforeZoom_.y = area.y + (area.height - placeBeforeZoom_.height) / 2;
    place(area);
}

}  // namespace quorl
