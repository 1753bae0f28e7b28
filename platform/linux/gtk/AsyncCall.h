#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <utility>

namespace quorl {

/// Turns a function into callback and data of a GIO-style call, which calls it exactly once.
class AsyncCall {
  public:
    using Function = std::function<void(GObject* source, GAsyncResult* result)>;

    /// Pass to the call as its data, together with callback().
    static gpointer data(Function function) {
        return std::make_unique<Function>(std::move(function)).release();
    }
    static GAsyncReadyCallback callback() { return &AsyncCall::ready; }

  private:
    static void ready(GObject* source, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Function> function(static_cast<Function*>(data));
        (*function)(source, result);
    }
};

}  // namespace quorl
