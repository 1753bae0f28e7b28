#include "GtkLoginPanel.h"

#include "ScreenGeometry.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace quorl {
namespace {

constexpr int iconSize = 40;
constexpr int smallestTextHeight = 36;
constexpr int textMargin = 20;  // above and below the text once it has been raised to the middle
constexpr std::chrono::milliseconds raiseDelay{200};

guint16 pangoComponent(double value) {
    return static_cast<guint16>(std::clamp(value, 0.0, 1.0) * 65535);
}

}  // namespace

GtkLoginPanel::GtkLoginPanel(GtkBuilder* builder)
    : window_(GTK_WINDOW(gtk_builder_get_object(builder, "loginPanel"))),
      button_(GTK_WIDGET(gtk_builder_get_object(builder, "controlButton"))),
      content_(GTK_WIDGET(gtk_builder_get_object(builder, "panelContent"))),
      image_(GTK_WIDGET(gtk_builder_get_object(builder, "controlImage"))),
      label_(GTK_WIDGET(gtk_builder_get_object(builder, "buttonLabel"))) {
    GdkRectangle frame{};
    gtk_window_get_default_size(window_, &frame.width, &frame.height);
    frame_ = fromBottomLeft(frame, frame.height);
    gtk_widget_get_size_request(image_, &frame.width, nullptr);
    imageEnd_ = gtk_widget_get_margin_start(image_) + frame.width;
    frame.x = imageEnd_ + gtk_widget_get_margin_start(label_);
    frame.y = gtk_widget_get_margin_top(label_);
    gtk_widget_get_size_request(label_, &frame.width, &frame.height);
    textFrame_ = fromBottomLeft(frame, frame_.size.height);

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
    signals_.connect<&GtkLoginPanel::showPointingHand>(button_, "map", this);
    signals_.connect<&GtkLoginPanel::textChanged>(label_, "style-updated", this);
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
    gtk_image_set_from_surface(GTK_IMAGE(image_), surface);
    cairo_surface_destroy(surface);
    return true;
}

void GtkLoginPanel::setButtonText(const std::string& text) {
    gtk_label_set_text(GTK_LABEL(label_), text.c_str());
    textChanged();
}

void GtkLoginPanel::setButtonTextOrigin(const Point& origin) {
    textFrame_.origin = origin;
    textChanged();
}

// The panel grows to the left with the desktop's text size, and upwards for a text that is long.
void GtkLoginPanel::textChanged() {
    growth_ = std::round(textFrame_.size.width * (textScale() - 1));
    const int width = narrowestWidth(static_cast<int>(textFrame_.size.width + growth_));
    int height = 0;
    gtk_widget_set_size_request(label_, width, -1);
    gtk_widget_set_margin_start(label_, 0);
    gtk_widget_set_margin_top(label_, 0);
    gtk_widget_get_preferred_height_for_width(label_, width, nullptr, &height);
    height = std::max(height, smallestTextHeight);
    gtk_widget_set_size_request(label_, width, height);
    textFrame_.size.height = height;
    frame_.size.height = height + 2 * textMargin;
    const GdkRectangle text = fromTopLeft(textFrame_, frame_.size.height);
    gtk_widget_set_margin_start(label_, text.x - imageEnd_);
    gtk_widget_set_margin_top(label_, text.y);
    if (gtk_widget_get_visible(GTK_WIDGET(window_)))
        place();
}

// In which the text takes no more lines than in that width, none of them a lone last word.
int GtkLoginPanel::narrowestWidth(int width) const {
    const GObjectHandle<PangoLayout> layout(
        gtk_widget_create_pango_layout(label_, gtk_label_get_text(GTK_LABEL(label_))));
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD);
    const auto lines = [&](int room) {
        int widest = 0;
        pango_layout_set_width(layout.get(), room * PANGO_SCALE);
        pango_layout_get_pixel_size(layout.get(), &widest, nullptr);
        return widest <= room ? pango_layout_get_line_count(layout.get()) : INT_MAX;
    };
    const int fewest = lines(width);
    while (fewest != INT_MAX && lines(width - 1) == fewest)
        --width;
    return width;
}

void GtkLoginPanel::setButtonTextColor(const Color& color) {
    using Attributes = Handle<PangoAttrList, pango_attr_list_unref>;
    const Attributes attributes(pango_attr_list_new());
    pango_attr_list_insert(attributes.get(), pango_attr_foreground_new(pangoComponent(color.red),
                                                                       pangoComponent(color.green),
                                                                       pangoComponent(color.blue)));
    pango_attr_list_insert(attributes.get(),
                           pango_attr_foreground_alpha_new(pangoComponent(color.alpha)));
    gtk_label_set_attributes(GTK_LABEL(label_), attributes.get());
}

void GtkLoginPanel::setEnabled(bool enabled) {
    gtk_widget_set_sensitive(button_, enabled);
    showPointingHand();
}

void GtkLoginPanel::clicked() {
    if (linkAction_)
        linkAction_();
}

void GtkLoginPanel::place() {
    const GdkRectangle monitor = loginMonitor();
    Rect frame = frame_;
    frame.origin.x -= growth_;
    frame.size.width += growth_;
    const GdkRectangle place = fromTopLeft(frame, monitor.height);
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
    GdkWindow* events = gtk_button_get_event_window(GTK_BUTTON(button_));
    if (!events)
        return;
    const bool enabled = gtk_widget_get_sensitive(button_);
    const GObjectHandle<GdkCursor> hand(
        gdk_cursor_new_from_name(gtk_widget_get_display(button_), enabled ? "pointer" : "default"));
    gdk_window_set_cursor(events, hand.get());
}

}  // namespace quorl
