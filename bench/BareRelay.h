#pragma once

#include "Bytes.h"
#include "Handle.h"

#include <glib.h>

#include <string>
#include <thread>

namespace quorl::bench {

/// The four hops of a request and nothing else, written straight to the system's calls: a client
/// connects and hands over its reply socket, a thread that polls passes the bytes to a thread that
/// runs GLib's main loop, which sends them back, and the first one answers the client. No checks,
/// no format, no log.
class BareRelay {
  public:
    explicit BareRelay(const std::string& path);
    ~BareRelay();
    BareRelay(const BareRelay&) = delete;
    BareRelay& operator=(const BareRelay&) = delete;

    /// One request of a new client, from connecting to the answer.
    void request(const Bytes& body);

  private:
    void relay(const std::stop_token& stop);
    void application();
    static gboolean answer(gint fd, GIOCondition condition, gpointer done);

    std::string path_;
    FileDescriptor listener_;
    FileDescriptor relayEnd_;
    FileDescriptor applicationEnd_;
    std::jthread relay_;
    std::jthread application_;
};

}  // namespace quorl::bench
