#include "GlibRunLoop.h"

#include <glib-unix.h>

namespace quorl {
namespace {

gboolean sourceReady(gint, GIOCondition, gpointer source) {
    static_cast<RunLoopSource*>(source)->ready();
    // A source that removed itself meanwhile is destroyed already, and stays so.
    return G_SOURCE_CONTINUE;
}

}  // namespace

void GlibRunLoop::add(RunLoopSource& source) {
    sources_[&source] = GlibSource(
        g_unix_fd_add(source.descriptor(), static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                      sourceReady, &source));
}

void GlibRunLoop::addForHangUp(RunLoopSource& source) {
    sources_[&source] = GlibSource(g_unix_fd_add(
        source.descriptor(), static_cast<GIOCondition>(G_IO_HUP | G_IO_ERR), sourceReady, &source));
}

void GlibRunLoop::remove(RunLoopSource& source) {
    sources_.erase(&source);
}

void GlibRunLoop::runFor(std::chrono::milliseconds duration) {
    bool over = false;
    OneShotTimer end;
    end.start(duration, [&over] { over = true; });
    while (!over)
        g_main_context_iteration(nullptr, TRUE);
}

}  // namespace quorl
