#include "CertificatePolicy.h"
#include "CommonUtils.h"
#include "ConfigParser.h"
#include "Handle.h"
#include "HttpClient.h"
#include "ServerAddress.h"
#include "ServerCommunicator.h"
#include "Workers.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <netdb.h>
#include <openssl/x509.h>

#include <array>
#include <cstring>
#include <ctime>
#include <future>
#include <thread>

namespace quorl::control {
namespace {

using Easy = Handle<CURL, curl_easy_cleanup>;
using AddressList = Handle<addrinfo, freeaddrinfo>;

// All of them together end before the doctor gives up on this process.
constexpr std::chrono::seconds nameLimit{5};
constexpr long lookSeconds = 4;
constexpr HttpLimits callLimits{.idle = std::chrono::seconds(3), .total = std::chrono::seconds(3)};

/// The addresses of a name, or why there are none.
struct Resolved {
    std::string addresses;
    std::string why;
};

Resolved resolve(const std::string& host) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (error != 0)
        return {"", gai_strerror(error)};
    const AddressList list(found);
    Resolved resolved;
    for (const addrinfo* entry = found; entry; entry = entry->ai_next) {
        std::array<char, NI_MAXHOST> text{};
        if (getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0,
                        NI_NUMERICHOST) == 0)
            resolved.addresses +=
                (resolved.addresses.empty() ? "" : ", ") + std::string(text.data());
    }
    return resolved;
}

void lookUp(std::string host, Value& found) {
    if (host.starts_with('['))
        host = host.substr(1, host.size() - 2);
    // A name service can hang for longer than anybody waits; its thread ends with this process.
    std::packaged_task<Resolved()> task([host] { return resolve(host); });
    auto future = task.get_future();
    std::thread(std::move(task)).detach();
    if (future.wait_for(nameLimit) != std::future_status::ready)
        return;
    const Resolved resolved = future.get();
    found[resolved.why.empty() ? "addresses" : "why"] =
        resolved.why.empty() ? resolved.addresses : resolved.why;
}

std::string proxyOf() {
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        if (const char* value = secure_getenv(name); value && *value) {
            const std::string proxy = value;
            // Without the name and password that it may hold.
            const std::size_t at = proxy.rfind('@');
            return at == proxy.npos ? proxy : proxy.substr(at + 1);
        }
    return "";
}

std::size_t noteDate(char* data, std::size_t size, std::size_t count, void* to) {
    constexpr std::string_view name = "date:";
    const std::string line(data, size * count);
    if (line.size() > name.size() && strncasecmp(line.c_str(), name.data(), name.size()) == 0)
        if (const time_t date = curl_getdate(line.c_str() + name.size(), nullptr); date > 0)
            *static_cast<time_t*>(to) = date;
    return size * count;
}

std::size_t endAtBody(char*, std::size_t, std::size_t, void*) {
    return 0;
}

// A field of the chain's last certificate, or of its first.
std::string certificateField(CURL* handle, const std::string& field, bool last) {
    curl_certinfo* chain = nullptr;
    if (curl_easy_getinfo(handle, CURLINFO_CERTINFO, &chain) != CURLE_OK || !chain ||
        chain->num_of_certs < 1)
        return "";
    for (curl_slist* entry = chain->certinfo[last ? chain->num_of_certs - 1 : 0]; entry;
         entry = entry->next)
        if (const std::string text = entry->data; text.starts_with(field + ":"))
            return text.substr(field.size() + 1);
    return "";
}

// What is wrong with a certificate that the agent's own rules refuse.
std::string certificateFault(CURL* handle) {
    long result = X509_V_OK;
    curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &result);
    switch (result) {
        case X509_V_OK:
            return "is for another name: " +
                   certificateField(handle, "X509v3 Subject Alternative Name", false);
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
            return "not trusted here; the missing authority is " +
                   certificateField(handle, "Issuer", true);
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return "expired on " + certificateField(handle, "Expire date", false);
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return "not valid before " + certificateField(handle, "Start date", false);
    }
    return X509_verify_cert_error_string(result);
}

// The connection as such, whatever the certificate: nothing is sent over it but a bare request.
void look(const std::string& url, Value& found) {
    const Easy handle(curl_easy_init());
    const char* folder = secure_getenv("SSL_CERT_DIR");
    time_t date = 0;
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT, lookSeconds);
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(handle.get(), CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(handle.get(), CURLOPT_CAPATH,
                     folder && *folder ? folder : X509_get_default_cert_dir());
    curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, noteDate);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &date);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, endAtBody);
    const CURLcode code = curl_easy_perform(handle.get());
    if (code != CURLE_OK && code != CURLE_WRITE_ERROR) {
        found["why"] = curl_easy_strerror(code);
        return;
    }
    found["connected"] = 1;
    if (date > 0)
        found["ahead"] = std::time(nullptr) - date;
    HttpClient client(CertificatePolicy::restrict, callLimits);
    const auto error =
        stringValue(client.makeSyncRequest("GET", url, "", "", Value::object()), "ERROR_MSG");
    if (error == "BAD_CERT")
        found["certificate"] = certificateFault(handle.get());
    else if (client.status() == 0)
        found["unseen"] = error.value_or("no answer");
}

}  // namespace

int serverWorker() {
    const Value& config = getProductConfig(getConfigFilePath());
    Value found = Value::object();
    if (const auto address = serverAddress(config)) {
        if (const std::string proxy = proxyOf(); !proxy.empty())
            found["proxy"] = proxy;
        lookUp(address->host, found);
        if (member(found, "addresses") || member(found, "proxy"))
            look(constructServerURL(address->host, address->port, address->contextPath, "/"),
                 found);
        // A communicator without an identity would begin by asking for one.
        if (member(found, "connected") && !configText(config, "AGENT_ID").empty() &&
            !configText(config, "ACCESS_KEY").empty()) {
            ServerCommunicator server(systemClock());
            server.sendRequestWithAuthHeader("/RestAPI/logonagent/mfa/getOfflineEnrollment", "POST",
                                             nullptr, "", callLimits);
            found["signed"] = server.lastStatus();
        }
    }
    say(found.dump(-1, ' ', false, Value::error_handler_t::replace));
    std::fflush(stdout);
    // Without waiting for a name service that hangs.
    _exit(exitDone);
}

}  // namespace quorl::control
