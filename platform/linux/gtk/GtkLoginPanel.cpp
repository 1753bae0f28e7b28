#include "GtkLoginPanel.h"

#include "ScreenGeometry.h"

#include <algorithm>

namespace quorl {
namespace {

constexpr int iconSize = 40;
constexpr int textLines = 2;
constexpr int textMargin = 10;  // padding and border of both sides
constexpr const char* longTextClass = "long-text";
constexpr std::chrono::milliseconds raiseDelay{200};

guint16 pangoComponent(double value) {
    return static_cast<guint16>(std::clamp(value, 0.0, 1.0) * 65535);
}

}  // namespace

GtkLoginPanel::GtkLoginPanel(GtkBuilder* builder)
    : window_(GTK_WINDOW(gtk_builder_get_object(builder, "loginPanel"))),
      content_(GTK_WIDGET(gtk_builder_get_object(builder, "panelContent"))),
      button_(GTK_WIDGET(gtk_builder_get_object(builder, "controlButton"))),
      image_(GTK_IMAGE(gtk_builder_get_object(builder, "controlImage"))),
      link_(GTK_WIDGET(gtk_builder_get_object(builder, "buttonText"))),
      label_(GTK_LABEL(gtk_builder_get_object(builder, "buttonLabel"))) {
    int width = 0;
    int height = 0;
    gtk_window_get_default_size(window_, &width, &height);
    frame_.size = {static_cast<double>(width), static_cast<double>(height)};

    GdkScreen* screen = gtk_widget_get_screen(GTK_WIDGET(window_));
    // Nobody mixes see-through pixels with the screen below unless a compositor runs; and a window
    // that could have some is never told when another one covers it.
    if (gdk_screen_is_composited(screen)) {
        gtk_widget_set_visual(GTK_WIDGET(window_), gdk_screen_get_rgba_visual(screen));
        gtk_style_context_add_class(gtk_widget_get_style_context(GTK_WIDGET(window_)),
                                    "see-through");
    }
    gtk_widget_add_events(GTK_WIDGET(window_), GDK_VISIBILITY_NOTIFY_MASK);

    signals_.connect<&GtkLoginPanel::drawBackground>(window_, "draw", this);
    signals_.connect<&GtkLoginPanel::clicked>(button_, "clicked", this);
    signals_.connect<&GtkLoginPanel::clicked>(link_, "clicked", this);
    signals_.connect<&GtkLoginPanel::showPointingHand>(link_, "map", this);
    signals_.connect<&GtkLoginPanel::monitorsChanged>(screen, "monitors-changed", this);
    signals_.connect<&GtkLoginPanel::monitorsChanged>(screen, "size-changed", this);
    signals_.connect<&GtkLoginPanel::visibilityChanged>(window_, "visibility-notify-event", this);
}

GtkLoginPanel::~GtkLoginPanel() {
    signals_.disconnectAll();
    gtk_widget_destroy(GTK_WIDGET(window_));
}

Size GtkLoginPanel::screenSize() const {
    const GdkRectangle monitor = loginMonitor();
    return {static_cast<double>(monitor.width), static_cast<double>(monitor.height)};
}

Rect GtkLoginPanel::frame() const {
    return frame_;
}

void GtkLoginPanel::showAt(const Rect& frame) {
    frame_ = frame;
    rightMargin_ = screenSize().width - frame.origin.x - frame.size.width;
    place();
    gtk_window_set_keep_above(window_, TRUE);
    gtk_window_stick(window_);
    gtk_widget_show(GTK_WIDGET(window_));
    gdk_window_raise(gtk_widget_get_window(GTK_WIDGET(window_)));
}

void GtkLoginPanel::orderOut() {
    raise_.stop();
    gtk_widget_hide(GTK_WIDGET(window_));
}

bool GtkLoginPanel::setButtonImage(const std::string& path) {
    const int scale = gtk_widget_get_scale_factor(button_);
    const GObjectHandle<GdkPixbuf> pixels(gdk_pixbuf_new_from_file_at_size(
        path.c_str(), iconSize * scale, iconSize * scale, nullptr));
    if (!pixels)
        return false;
    cairo_surface_t* surface = gdk_cairo_surface_create_from_pixbuf(pixels.get(), scale, nullptr);
    gtk_image_set_from_surface(image_, surface);
    cairo_surface_destroy(surface);
    return true;
}

void GtkLoginPanel::setButtonText(const std::string& text) {
    gtk_label_set_text(label_, text.c_str());
    gtk_widget_set_tooltip_text(button_, text.c_str());
    atk_object_set_name(gtk_widget_get_accessible(button_), text.c_str());
    GtkStyleContext* style = gtk_widget_get_style_context(GTK_WIDGET(label_));
    gtk_style_context_remove_class(style, longTextClass);
    if (!fits(text))
        gtk_style_context_add_class(style, longTextClass);
}

// Whether the text stays within the lines that its place has room for.
bool GtkLoginPanel::fits(const std::string& text) const {
    const GObjectHandle<PangoLayout> layout(
        gtk_widget_create_pango_layout(GTK_WIDGET(label_), text.c_str()));
    const int room = static_cast<int>(buttonTextFrame().size.width) - textMargin;
    pango_layout_set_width(layout.get(), room * PANGO_SCALE);
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    return pango_layout_get_line_count(layout.get()) <= textLines;
}

Rect GtkLoginPanel::buttonTextFrame() const {
    GdkRectangle frame{};
    gtk_container_child_get(GTK_CONTAINER(content_), link_, "x", &frame.x, "y", &frame.y, nullptr);
    gtk_widget_get_size_request(link_, &frame.width, &frame.height);
    return fromBottomLeft(frame, frame_.size.height);
}

void GtkLoginPanel::setButtonTextOrigin(const Point& origin) {
    const GdkRectangle place = fromTopLeft({origin, buttonTextFrame().size}, frame_.size.height);
    gtk_fixed_move(GTK_FIXED(content_), link_, place.x, place.y);
}

void GtkLoginPanel::setButtonTextColor(const Color& color) {
    using Attributes = Handle<PangoAttrList, pango_attr_list_unref>;
    const Attributes attributes(pango_attr_list_new());
    pango_attr_list_insert(attributes.get(), pango_attr_foreground_new(pangoComponent(color.red),
                                                                       pangoComponent(color.green),
                                                                       pangoComponent(color.blue)));
    pango_attr_list_insert(attributes.get(),
                           pango_attr_foreground_alpha_new(pangoComponent(color.alpha)));
    gtk_label_set_attributes(label_, attributes.get());
}

void GtkLoginPanel::setEnabled(bool enabled) {
    gtk_widget_set_sensitive(button_, enabled);
    gtk_widget_set_sensitive(link_, enabled);
    showPointingHand();
}

void GtkLoginPanel::clicked() {
    if (linkAction_)
        linkAction_();
}

void GtkLoginPanel::place() {
    const GdkRectangle monitor = loginMonitor();
    const GdkRectangle place = fromTopLeft(frame_, monitor.height);
    gtk_widget_set_size_request(content_, place.width, place.height);
    gtk_window_move(window_, monitor.x + place.x, monitor.y + place.y);
}

void GtkLoginPanel::monitorsChanged() {
    if (!gtk_widget_get_visible(GTK_WIDGET(window_)))
        return;
    frame_.origin.x = std::max(0.0, screenSize().width - frame_.size.width - rightMargin_);
    place();
}

gboolean GtkLoginPanel::drawBackground(cairo_t* drawing) {
    // First to nothing: a see-through background drawn over what was there would gather.
    cairo_save(drawing);
    cairo_set_operator(drawing, CAIRO_OPERATOR_CLEAR);
    cairo_paint(drawing);
    cairo_restore(drawing);
    GtkWidget* window = GTK_WIDGET(window_);
    gtk_render_background(gtk_widget_get_style_context(window), drawing, 0, 0,
                          gtk_widget_get_allocated_width(window),
                          gtk_widget_get_allocated_height(window));
    return GDK_EVENT_PROPAGATE;
}

gboolean GtkLoginPanel::visibilityChanged(GdkEvent* event) {
    // Without a window manager nobody keeps the panel above what is mapped later. While the browser
    // window is in use (the link is disabled then), it may cover the panel.
    if (event->visibility.state == GDK_VISIBILITY_UNOBSCURED)
        raise_.stop();
    else if (gtk_widget_get_sensitive(button_) && !raise_.running())
        raise_.start(raiseDelay,
                     [this] { gdk_window_raise(gtk_widget_get_window(GTK_WIDGET(window_))); });
    return GDK_EVENT_PROPAGATE;
}

void GtkLoginPanel::showPointingHand() {
    const bool enabled = gtk_widget_get_sensitive(link_);
    const GObjectHandle<GdkCursor> hand(
        gdk_cursor_new_from_name(gtk_widget_get_display(link_), enabled ? "pointer" : "default"));
    for (GtkWidget* widget : {button_, link_}) {
        if (GdkWindow* events = gtk_button_get_event_window(GTK_BUTTON(widget)))
            gdk_window_set_cursor(events, hand.get());
    }
}

}  // namespace quorl
