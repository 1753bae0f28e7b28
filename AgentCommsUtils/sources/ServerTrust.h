#pragma once

#include "CertificatePolicy.h"

#include <curl/curl.h>
#include <openssl/ssl.h>

namespace quorl {

/// Decides on the certificates of one client's connections, and says in the log what it decided.
/// A certificate is trusted when its chain ends in the machine's folder of authorities
/// (SSL_CERT_DIR, else OpenSSL's own) and one of
/// its alternative names is the host that was asked for; the common name is no name.
class ServerTrust {
  public:
    explicit ServerTrust(CertificatePolicy policy) : policy_(policy) {}
    ServerTrust(const ServerTrust&) = delete;
    ServerTrust& operator=(const ServerTrust&) = delete;

    /// Makes the handle's connections ask here. This object must outlive the transfer.
    void attachTo(CURL* handle);

    /// Whether a certificate was refused.
    bool hasRefused() const { return refused_; }

  private:
    static CURLcode prepareContext(CURL* handle, void* context, void* self);
    static int verify(X509_STORE_CTX* store, void* self);
    bool decide(X509_STORE_CTX* store);

    CertificatePolicy policy_;
    bool refused_ = false;
};

}  // namespace quorl
