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

/// How long an exchange may take.
struct HttpLimits {
    /// A connection may be made for, or stay without a byte.
    std::chrono::milliseconds idle = std::chrono::seconds(15);
    /// The whole of it, name look-up and redirects included.
    std::chrono::milliseconds total = std::chrono::seconds(60);
};

/// One request and its reply over libcurl, with nothing kept from other exchanges: no cache, no
/// credentials, cookies only from one redirect to the next. It ends at the server that it began
/// with: a redirect to another scheme, host or port is an error, so that nobody else gets the
/// signed headers or answers in the server's place. Proxies are those of the process environment.
/// Serves one request.
class HttpExchange {
  public:
    /// The most that a body may hold.
    static constexpr std::size_t maximumBody = std::size_t{1024} * 1024;
    /// The most that headers and trailers may hold together.
    static constexpr std::size_t maximumHeaders = std::size_t{256} * 1024;

    HttpExchange(const HttpRequest& request, CertificatePolicy policy, HttpLimits limits = {});
    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    /// Sends and waits for the end. Blocks the calling thread.
    HttpReply perform();

  private:
    using Easy = Handle<CURL, curl_easy_cleanup>;
    using HeaderList = Handle<curl_slist, curl_slist_free_all>;
    enum class Stop {
        none,
        idle,
        total,
        bodyTooLarge,
        headersTooLarge,
        elsewhere,
        unsendableHeader
    };
    struct Failure {
        CURLcode code;
        std::string reason;
    };

    void setMethod(const HttpRequest& request);
    void setHeaders(const HeaderFields& headers);
    HttpError errorOf(CURLcode code) const;
    Failure ownFailure() const;
    std::string mediaType() const;
    static std::size_t receive(char* data, std::size_t size, std::size_t count, void* self);
    static int watchProgress(void* self, curl_off_t, curl_off_t down, curl_off_t, curl_off_t up);
    static std::size_t noteHeader(char* data, std::size_t size, std::size_t count, void* self);
    static int beforeRequest(void* self, char*, char*, int, int);

    std::string requestBody_;
    std::string reply_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    HttpLimits limits_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastActivity_;
    std::size_t headerBytes_ = 0;
    std::string origin_;  ///< scheme, host and port of the request's URL
    curl_off_t progress_ = 0;
    Stop stop_ = Stop::none;
    ServerTrust trust_;
    HeaderList headers_;
    Easy handle_;
};

}  // namespace quorl
