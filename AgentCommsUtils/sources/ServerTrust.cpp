#include "ServerTrust.h"

#include "Handle.h"
#include "Log.h"

#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <stdlib.h>

#include <optional>
#include <string>

namespace quorl {
namespace {

using CurlUrl = Handle<CURLU, curl_url_cleanup>;
using CurlText = Handle<char, curl_free>;

/// The host of the connection being made, as certificates spell it; after a redirect it is another
/// than the first URL's.
std::optional<std::string> currentHost(CURL* handle) {
    const char* url = nullptr;
    curl_easy_getinfo(handle, CURLINFO_EFFECTIVE_URL, &url);
    const CurlUrl parsed(curl_url());
    char* host = nullptr;
    if (!url || !parsed || curl_url_set(parsed.get(), CURLUPART_URL, url, 0) != CURLUE_OK ||
        curl_url_get(parsed.get(), CURLUPART_HOST, &host, CURLU_PUNYCODE) != CURLUE_OK)
        return std::nullopt;
    const CurlText owned(host);
    std::string name = host;
    if (name.size() > 2 && name.front() == '[')
        name = name.substr(1, name.size() - 2);
    if (!name.empty() && name.back() == '.')
        name.pop_back();
    return name;
}

bool expectHost(X509_VERIFY_PARAM* parameters, const std::string& host) {
    // An address must stand in the certificate as an address, never as a name.
    if (X509_VERIFY_PARAM_set1_ip_asc(parameters, host.c_str()) == 1)
        return true;
    // Name constraints of an authority bind alternative names; a name in the subject would get
    // round them.
    X509_VERIFY_PARAM_set_hostflags(
        parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    return X509_VERIFY_PARAM_set1_host(parameters, host.c_str(), host.size()) == 1;
}

/// The server would like a certificate of ours: it gets none, and the handshake goes on.
int offerNoClientCertificate(SSL*, X509**, EVP_PKEY**) {
    logLine("HttpClient: Protection space's auth method is not serverTrust");
    return 0;
}

}  // namespace

void ServerTrust::attachTo(CURL* handle) {
    // The hashed folder alone: each authority is read when a chain asks for it, whereas loading the
    // bundle of all of them takes ten times as long as the request.
    const char* folder = secure_getenv("SSL_CERT_DIR");
    curl_easy_setopt(handle, CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(handle, CURLOPT_CAPATH,
                     folder && *folder ? folder : X509_get_default_cert_dir());
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);
    // The host's name is checked within the verdict below, before the log says "trusted".
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
    // A resumed session would skip the verdict.
    curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, &ServerTrust::prepareContext);
    curl_easy_setopt(handle, CURLOPT_SSL_CTX_DATA, this);
}

CURLcode ServerTrust::prepareContext(CURL* handle, void* context, void* self) {
    auto* const ssl = static_cast<SSL_CTX*>(context);
    const std::optional<std::string> host = currentHost(handle);
    if (!host || !expectHost(SSL_CTX_get0_param(ssl), *host))
        return CURLE_URL_MALFORMAT;
    SSL_CTX_set_cert_verify_callback(ssl, &ServerTrust::verify, self);
    SSL_CTX_set_client_cert_cb(ssl, &offerNoClientCertificate);
    return CURLE_OK;
}

int ServerTrust::verify(X509_STORE_CTX* store, void* self) {
    return static_cast<ServerTrust*>(self)->decide(store) ? 1 : 0;
}

bool ServerTrust::decide(X509_STORE_CTX* store) {
    switch (policy_) {
        case CertificatePolicy::allowAny:
            logLine("HttpClient: It's bad server cert, however allowing it as per the preference");
            X509_STORE_CTX_set_error(store, X509_V_OK);
            return true;
        case CertificatePolicy::restrict:
            break;
    }
    logLine("HttpClient: It's bad server cert, checking trust in keychain...");
    if (X509_verify_cert(store) == 1) {
        logLine("HttpClient: It's a trusted certificate in keychain");
        return true;
    }
    logLine(
        "HttpClient: It's not a trusted certificate in keychain, going to block as per the "
        "preference");
    refused_ = true;
    return false;
}

}  // namespace quorl
