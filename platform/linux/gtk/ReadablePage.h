#pragma once

#include "GlibSupport.h"

#include <gtk/gtk.h>

#include <functional>
#include <memory>

namespace quorl {

/// The page as a screen reader finds it. The engine builds what is to be read, and tells of what
/// gets the focus, only from when somebody asks for it: a reader that asks once the page has come
/// never hears where the focus is. So where there are readers, the agent asks before there is a
/// page. Who listens on the bus the page's process learns at its start alone, since its sandbox
/// lets no news of that in. So the agent listens itself: the process then tells of what happens
/// also when the reader comes later.
class ReadablePage {
  public:
    /// `readerCame` is called for a reader that has come since; it has not heard of the focus.
    ReadablePage(GtkWidget* view, std::function<void()> readerCame);
    ~ReadablePage();
    ReadablePage(const ReadablePage&) = delete;
    ReadablePage& operator=(const ReadablePage&) = delete;

    /// The view's process is being started: asks it, once, as soon as it is there.
    void ask();
    bool isAsked() const { return asked_; }
    /// Calls back when it has answered, or has taken too long; at once when nobody reads.
    void whenReadable(std::function<void()> then);

  private:
    void stateChanged(const char*, gboolean);
    void listen();
    static void readerListens(GDBusConnection* bus, const char* sender, const char* path,
                              const char* interface, const char* signal, GVariant* parameters,
                              gpointer self);
    void look();
    void finish();

    GtkWidget* view_;
    std::function<void()> readerCame_;
    bool asked_ = false;
    bool finished_ = false;
    std::function<void()> then_;
    GObjectHandle<GDBusConnection> bus_;
    guint others_ = 0;
    OneShotTimer limit_;
    OneShotTimer came_;
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    SignalConnections signals_;
};

}  // namespace quorl
