#include "ReadablePage.h"

#include "AccessibilityJoin.h"
#include "AsyncCall.h"
#include "Log.h"

#include <algorithm>
#include <string>
#include <utility>

namespace quorl {
namespace {

// Of a process that has just been started, on a busy machine.
constexpr std::chrono::seconds longestWait{2};

}  // namespace

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
            look();
        }));
}

void ReadablePage::whenReadable(std::function<void()> then) {
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

void ReadablePage::finish() {
    limit_.stop();
    finished_ = true;
    if (const auto then = std::exchange(then_, nullptr))
        then();
}

}  // namespace quorl
