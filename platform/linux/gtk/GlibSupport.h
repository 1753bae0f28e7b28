#pragma once

#include "Handle.h"

#include <glib-object.h>

#include <chrono>
#include <functional>
#include <utility>
#include <vector>

namespace quorl {

template <class T>
using GObjectHandle = Handle<T, g_object_unref>;
using GErrorHandle = Handle<GError, g_error_free>;
using GCharHandle = Handle<char, g_free>;

/// A further reference to the object, owned by the handle.
template <class T>
GObjectHandle<T> retained(T* object) {
    return GObjectHandle<T>(static_cast<T*>(g_object_ref(object)));
}

namespace detail {
template <auto Method>
struct SignalThunk;
template <class C, class R, class... A, R (C::*Method)(A...)>
struct SignalThunk<Method> {
    static R call(gpointer, A... arguments, gpointer self) {
        return (static_cast<C*>(self)->*Method)(arguments...);
    }
};
}  // namespace detail

/// Connected signal handlers, disconnected when this goes out of scope.
class SignalConnections {
  public:
    SignalConnections() = default;
    SignalConnections(const SignalConnections&) = delete;
    SignalConnections& operator=(const SignalConnections&) = delete;
    ~SignalConnections() { disconnectAll(); }

    /// Calls the member function with the signal's arguments, without the instance.
    template <auto Method, class C>
    void connect(gpointer instance, const char* signal, C* self) {
        auto callback = G_CALLBACK(&detail::SignalThunk<Method>::call);
        const gulong id = g_signal_connect(instance, signal, callback, self);
        connections_.emplace_back(retained(G_OBJECT(instance)), id);
    }
    void disconnectAll() {
        for (const auto& [object, id] : connections_) {
            if (g_signal_handler_is_connected(object.get(), id))
                g_signal_handler_disconnect(object.get(), id);
        }
        connections_.clear();
    }

  private:
    std::vector<std::pair<GObjectHandle<GObject>, gulong>> connections_;
};

/// A GLib event source that is removed when this goes out of scope.
class GlibSource {
  public:
    GlibSource() = default;
    explicit GlibSource(guint id) : id_(id) {}
    GlibSource(GlibSource&& other) noexcept : id_(std::exchange(other.id_, 0)) {}
    GlibSource& operator=(GlibSource&& other) noexcept {
        if (this != &other) {
            reset();
            id_ = std::exchange(other.id_, 0);
        }
        return *this;
    }
    GlibSource(const GlibSource&) = delete;
    GlibSource& operator=(const GlibSource&) = delete;
    ~GlibSource() { reset(); }

    void reset() {
        if (id_ != 0)
            g_source_remove(std::exchange(id_, 0));
    }

  private:
    guint id_ = 0;
};

/// Calls back once, on the main loop, after a delay.
class OneShotTimer {
  public:
    OneShotTimer() = default;
    OneShotTimer(const OneShotTimer&) = delete;
    OneShotTimer& operator=(const OneShotTimer&) = delete;
    ~OneShotTimer() { stop(); }

    /// A timer that runs already starts anew.
    void start(std::chrono::milliseconds delay, std::function<void()> action) {
        stop();
        action_ = std::move(action);
        id_ = g_timeout_add(static_cast<guint>(delay.count()), &OneShotTimer::fire, this);
    }
    void stop() {
        if (id_ != 0)
            g_source_remove(std::exchange(id_, 0));
    }
    bool running() const { return id_ != 0; }

  private:
    static gboolean fire(gpointer self) {
        auto* timer = static_cast<OneShotTimer*>(self);
        timer->id_ = 0;
        // The action may start or destroy this timer.
        const auto action = std::move(timer->action_);
        action();
        return G_SOURCE_REMOVE;
    }

    guint id_ = 0;
    std::function<void()> action_;
};

}  // namespace quorl
