#include "ReadablePage.h"

#include "AccessibilityJoin.h"
#include "AsyncCall.h"
#include "Log.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace quorl {
namespace {

// Of a process that has just been started, on a busy machine.
constexpr std::chrono::seconds longestWait{2};

constexpr const char* registryName = "org.a11y.atspi.Registry";
constexpr const char* registryPath = "/org/a11y/atspi/registry";

// A reader looks for the focus by itself once it listens, and finds what holds the page.
constexpr std::chrono::seconds settling{1};

// What readers go by in a page.
constexpr const char* toldEvents[] = {"object:state-changed", "object:text-changed",
                                      "object:text-caret-moved", "document:load-complete"};

}  // namespace

// The focus is the page's to tell. The view tells of it as well, and of no state that it is in, so
// that readers call it grayed. Nobody is told of the focus of what is called redundant.
ReadablePage::ReadablePage(GtkWidget* view, std::function<void()> readerCame)
    : view_(view), readerCame_(std::move(readerCame)) {
    atk_object_set_role(gtk_widget_get_accessible(view_), ATK_ROLE_REDUNDANT_OBJECT);
}

ReadablePage::~ReadablePage() {
    if (others_ != 0)
        g_dbus_connection_signal_unsubscribe(bus_.get(), others_);
}

void ReadablePage::ask() {
    if (std::exchange(asked_, true))
        return;
    AtkObject* socket = gtk_widget_get_accessible(view_);
    const char* address = joinedAccessibilityBus();
    if (!address || !ATK_IS_SOCKET(socket)) {
        finish();
        return;
    }
    limit_.start(longestWait, [this] {
        logLine("ReadablePage : a page cannot be read yet and is loaded all the same");
        finish();
    });
    signals_.connect<&ReadablePage::stateChanged>(socket, "state-change", this);
    g_dbus_connection_new_for_address(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, AsyncCall::callback(),
        AsyncCall::data([this, alive = std::weak_ptr(alive_)](GObject*, GAsyncResult* result) {
            GObjectHandle<GDBusConnection> bus(
                g_dbus_connection_new_for_address_finish(result, nullptr));
            if (alive.expired())
                return;
            bus_ = std::move(bus);
            listen();
            look();
        }));
}

void ReadablePage::whenReadable(std::function<void()> then) {
    came_.stop();  // Whoever listens hears of the page that comes now.
    then_ = std::move(then);
    if (finished_ || !asked_)
        std::exchange(then_, nullptr)();
}

void ReadablePage::stateChanged(const char*, gboolean) {
    look();
}

// The process gives its name on the bus when it is there.
void ReadablePage::look() {
    const char* plug = ATK_SOCKET(gtk_widget_get_accessible(view_))->embedded_plug_id;
    if (!bus_ || !plug)
        return;
    signals_.disconnectAll();
    const std::string place = plug;
    const auto colon = std::min(place.find(':', 1), place.size());
    const std::string name = place.substr(0, colon),
                      path = place.substr(std::min(colon + 1, place.size()));
    // A process that a page has taken over may say anything.
    if (!g_dbus_is_name(name.c_str()) || !g_variant_is_object_path(path.c_str())) {
        finish();
        return;
    }
    g_dbus_connection_call(
        bus_.get(), name.c_str(), path.c_str(), "org.a11y.atspi.Accessible", "GetChildAtIndex",
        g_variant_new("(i)", 0), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr,
        AsyncCall::callback(),
        AsyncCall::data([this, alive = std::weak_ptr(alive_)](GObject* bus, GAsyncResult* result) {
            const Handle<GVariant, g_variant_unref> answer(
                g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, nullptr));
            if (!alive.expired())
                finish();
        }));
}

// Until the connection ends, with this.
void ReadablePage::listen() {
    if (!bus_)
        return;
    for (const char* event : toldEvents)
        g_dbus_connection_call(bus_.get(), registryName, registryPath, registryName,
                               "RegisterEvent", g_variant_new("(s)", event), nullptr,
                               G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, nullptr);
    others_ = g_dbus_connection_signal_subscribe(
        bus_.get(), registryName, registryName, "EventListenerRegistered", registryPath, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, &ReadablePage::readerListens, this, nullptr);
}

void ReadablePage::readerListens(GDBusConnection* bus, const char*, const char*, const char*,
                                 const char*, GVariant* parameters, gpointer self) {
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ssas)")))
        return;
    const char* listener = nullptr;
    const char* event = nullptr;
    g_variant_get_child(parameters, 0, "&s", &listener);
    g_variant_get_child(parameters, 1, "&s", &event);
    auto* page = static_cast<ReadablePage*>(self);
    if (std::string_view(event) == "Object:StateChanged:Focused" &&
        listener != std::string_view(g_dbus_connection_get_unique_name(bus)))
        page->came_.start(settling, page->readerCame_);
}

void ReadablePage::finish() {
    limit_.stop();
    finished_ = true;
    if (const auto then = std::exchange(then_, nullptr))
        then();
}

}  // namespace quorl
