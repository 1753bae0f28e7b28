#pragma once

#include "Handle.h"

#include <openssl/ssl.h>

#include <string>
#include <thread>

namespace quorl::bench {

using TlsContext = Handle<SSL_CTX, SSL_CTX_free>;
using TlsSession = Handle<SSL, SSL_free>;

/// The least HTTPS server: answers every request on its own thread with one small JSON body.
class TlsServer {
  public:
    TlsServer(const std::string& certificate, const std::string& key);
    ~TlsServer();
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;

    int port() const { return port_; }

  private:
    void serve();

    TlsContext context_;
    FileDescriptor listener_;
    int port_ = 0;
    std::thread thread_;
};

/// The least client: connects to localhost, verifies certificate and host name against the hashed
/// folder, posts, and gives the reply with its headers; "" on failure.
std::string barePost(int port, const std::string& authorities, const std::string& path,
                     const std::string& body);

}  // namespace quorl::bench
