#pragma once

#include "Handle.h"

#include <openssl/ssl.h>

#include <string>
#include <thread>

namespace quorl::bench {

using TlsContext = Handle<SSL_CTX, SSL_CTX_free>;
using Connection = Handle<BIO, BIO_free_all>;

/// Listens on that port of the loopback interface, 0 for a free one. Whoever connects is never
/// answered while nobody accepts.
Connection listenOn(const std::string& port);

/// The least HTTPS server: answers every request on its own thread with one small JSON body.
class TlsServer {
  public:
    /// The path of certificate and key without ".pem" and ".key".
    explicit TlsServer(const std::string& certificate);
    ~TlsServer();
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;

    const std::string& port() const { return port_; }

  private:
    void serve();

    TlsContext context_;
    Connection listener_;
    std::string port_;
    std::thread thread_;
};

/// The least client: connects to localhost, verifies certificate and host name against the hashed
/// folder, posts, and gives the reply with its headers; "" on failure.
std::string barePost(const std::string& port, const std::string& authorities,
                     const std::string& path, const std::string& body);

}  // namespace quorl::bench
