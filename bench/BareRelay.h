#pragma once

#include "Bytes.h"

#include <memory>
#include <string>

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
    class Threads;
    std::string path_;
    std::unique_ptr<Threads> threads_;
};

}  // namespace quorl::bench
