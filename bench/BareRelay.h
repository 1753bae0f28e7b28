#pragma once

#include "Bytes.h"

namespace quorl::bench {

/// The four hops of a request and nothing else, written straight to the system's calls: a client
/// connects and hands over its reply socket, a thread that polls passes the bytes to a thread that
/// runs GLib's main loop, which sends them back, and the first one answers the client. No checks,
/// no format, no log. The threads last as long as the process.
void startBareRelay(const std::string& path);

/// One request of a new client, from connecting to the answer.
void bareRequest(const std::string& path, const Bytes& body);

}  // namespace quorl::bench
