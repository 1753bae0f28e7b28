#pragma once

#include "Handle.h"
#include "ServerTrust.h"

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Orders header names without regard to the case of ASCII letters.
struct HeaderNameLess {
    bool operator()(const std::string& left, const std::string& right) const;
};
using HeaderFields = std::map<std::string, std::string, HeaderNameLess>;

/// What is sent: the URL is percent-encoded already.
struct HttpRequest {
    std::string method;
    std::string url;
    std::string body;
    HeaderFields headers;
};

/// Why an exchange failed, in the transport's words.
struct HttpError {
    int code = 0;
    std::string description;
    std::optional<std::string> reason;
    bool isCertificateError = false;
};

/// What came back; without an error, status and body are whole.
struct HttpReply {
    long status = 0;
    std::string mediaType;  ///< in lower case, without parameters
    std::string body;
    std::optional<HttpError> error;
};

/// One request and its reply over libcurl, with nothing kept from other exchanges: no cache, no
/// credentials, cookies only from one redirect to the next. Proxies are those of the process
/// environment. Serves one request.
class HttpExchange {
  public:
    /// How long a connection may be made for, or stay without a byte.
    static constexpr std::chrono::seconds idleTimeout{15};
    /// The most that a body may hold.
    static constexpr std::size_t maximumBody = std::size_t{16} * 1024 * 1024;

    HttpExchange(const HttpRequest& request, CertificatePolicy policy);
    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    /// Sends and waits for the end. Blocks the calling thread.
    HttpReply perform();

  private:
    using Easy = Handle<CURL, curl_easy_cleanup>;
    using HeaderList = Handle<curl_slist, curl_slist_free_all>;
    enum class Stop { none, idle, bodyTooLarge };

    void setMethod(const HttpRequest& request);
    void setHeaders(const HeaderFields& headers);
    HttpError errorOf(CURLcode code) const;
    std::string mediaType() const;
    static std::size_t receive(char* data, std::size_t size, std::size_t count, void* self);
    static int watchProgress(void* self, curl_off_t, curl_off_t down, curl_off_t, curl_off_t up);
    static std::size_t noteHeader(char* data, std::size_t size, std::size_t count, void* self);

    std::string requestBody_;
    std::string reply_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    std::chrono::steady_clock::time_point lastActivity_;
    curl_off_t progress_ = 0;
    Stop stop_ = Stop::none;
    ServerTrust trust_;
    HeaderList headers_;
    Easy handle_;
};

}  // namespace quorl
