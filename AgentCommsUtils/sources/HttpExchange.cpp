#include "HttpExchange.h"

#include "AsciiCase.h"
#include "Log.h"

#include <strings.h>

#include <algorithm>

namespace quorl {
namespace {

bool holdsControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

using CurlUrl = Handle<CURLU, curl_url_cleanup>;
using CurlText = Handle<char, curl_free>;

/// Scheme, host and port, the latter written out; "" when the URL has none.
std::string originOf(const char* url) {
    const CurlUrl parsed(curl_url());
    if (!url || !parsed || curl_url_set(parsed.get(), CURLUPART_URL, url, 0) != CURLUE_OK)
        return "";
    std::string origin;
    for (const CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
        char* text = nullptr;
        if (curl_url_get(parsed.get(), part, &text, CURLU_DEFAULT_PORT) != CURLUE_OK)
            return "";
        origin += CurlText(text).get();
        origin += ' ';
    }
    std::transform(origin.begin(), origin.end(), origin.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return origin;
}

CURL* newHandle() {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    return initialised == CURLE_OK ? curl_easy_init() : nullptr;
}

}  // namespace

bool HeaderNameLess::operator()(const std::string& left, const std::string& right) const {
    return strcasecmp(left.c_str(), right.c_str()) < 0;
}

HttpExchange::HttpExchange(const HttpRequest& request, CertificatePolicy policy, HttpLimits limits)
    : requestBody_(request.body),
      limits_(limits),
      origin_(originOf(request.url.c_str())),
      trust_(policy),
      handle_(newHandle()) {
    if (!handle_)
        return;
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText_.data());
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
    // What is signed is the path as it stands.
    curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
    // A redirect to plain http would send the signed headers in clear.
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 20L);
    curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, &HttpExchange::beforeRequest);
    curl_easy_setopt(handle, CURLOPT_PREREQDATA, this);
    // The frames of HTTP/2 keep a connection busy that brings nothing, out of sight of the limits.
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    curl_easy_setopt(handle, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "QUORLLoginAgent");
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(std::min(limits.idle, limits.total).count()));
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(limits.total.count()));
    // A name server that does not answer would hold the call beyond its limits.
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &HttpExchange::watchProgress);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &HttpExchange::noteHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &HttpExchange::receive);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
    trust_.attachTo(handle);
    setMethod(request);
    setHeaders(request.headers);
}

void HttpExchange::setMethod(const HttpRequest& request) {
    CURL* const handle = handle_.get();
    if (request.method == "POST") {
        curl_easy_setopt(handle, CURLOPT_POST, 1L);
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(requestBody_.size()));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, requestBody_.c_str());
    } else if (request.method == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
    } else if (request.method != "GET") {
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
}

void HttpExchange::setHeaders(const HeaderFields& headers) {
    const auto add = [this](const std::string& line) {
        if (curl_slist* const extended = curl_slist_append(headers_.get(), line.c_str())) {
            static_cast<void>(headers_.release());
            headers_.reset(extended);
        }
    };
    // The library's own additions to a POST; a colon alone takes a header away.
    if (!headers.contains("content-type"))
        add("Content-Type:");
    add("Expect:");
    for (const auto& [name, value] : headers) {
        if (holdsControlCharacter(name) || holdsControlCharacter(value)) {
            logLine("HttpClient : header {} holds a control character, nothing is sent", name);
            stop_ = Stop::unsendableHeader;
            continue;
        }
        // To the library "Name:" means none, "Name;" an empty one.
        add(value.empty() ? name + ";" : name + ": " + value);
    }
    curl_easy_setopt(handle_.get(), CURLOPT_HTTPHEADER, headers_.get());
}

HttpReply HttpExchange::perform() {
    HttpReply reply;
    if (!handle_) {
        reply.error = errorOf(CURLE_FAILED_INIT);
        return reply;
    }
    // A signed call without one of its headers would be another call.
    if (stop_ == Stop::unsendableHeader) {
        reply.error = errorOf(CURLE_BAD_FUNCTION_ARGUMENT);
        return reply;
    }
    start_ = lastActivity_ = std::chrono::steady_clock::now();
    const CURLcode code = curl_easy_perform(handle_.get());
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &reply.status);
    long offered = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_HTTPAUTH_AVAIL, &offered);
    if (reply.status == 401 && (offered & (CURLAUTH_NTLM | CURLAUTH_NEGOTIATE)) != 0)
        logLine("HttpClient: Protection space's auth method is not serverTrust");
    if (code != CURLE_OK) {
        reply.error = errorOf(code);
        return reply;
    }
    reply.mediaType = mediaType();
    reply.body = std::move(reply_);
    return reply;
}

HttpError HttpExchange::errorOf(CURLcode code) const {
    HttpError error;
    if (stop_ != Stop::none) {
        const Failure failure = ownFailure();
        error.code = failure.code;
        error.description = curl_easy_strerror(failure.code);
        error.reason = failure.reason;
        return error;
    }
    error.code = code;
    error.description = curl_easy_strerror(code);
    if (errorText_[0] != '\0')
        error.reason = errorText_.data();
    error.isCertificateError = trust_.hasRefused() || code == CURLE_PEER_FAILED_VERIFICATION ||
                               code == CURLE_SSL_ISSUER_ERROR ||
                               code == CURLE_SSL_INVALIDCERTSTATUS;
    return error;
}

HttpExchange::Failure HttpExchange::ownFailure() const {
    const auto seconds = [](std::chrono::milliseconds limit) { return limit.count() / 1000.0; };
    switch (stop_) {
        case Stop::none:
            break;
        case Stop::idle:
            return {CURLE_OPERATION_TIMEDOUT,
                    fmt::format("no data for {} seconds", seconds(limits_.idle))};
        case Stop::total:
            return {CURLE_OPERATION_TIMEDOUT,
                    fmt::format("no end after {} seconds", seconds(limits_.total))};
        case Stop::bodyTooLarge:
            return {CURLE_FILESIZE_EXCEEDED,
                    fmt::format("the body holds more than {} bytes", maximumBody)};
        case Stop::headersTooLarge:
            return {CURLE_FILESIZE_EXCEEDED,
                    fmt::format("the headers hold more than {} bytes", maximumHeaders)};
        case Stop::elsewhere:
            return {CURLE_TOO_MANY_REDIRECTS, "a redirect leads to another server"};
        case Stop::unsendableHeader:
            return {CURLE_BAD_FUNCTION_ARGUMENT, "a header cannot be sent"};
    }
    return {CURLE_OK, ""};
}

std::string HttpExchange::mediaType() const {
    curl_header* header = nullptr;
    // Of the last reply alone: the one of a redirect before it says nothing about this body.
    if (curl_easy_header(handle_.get(), "Content-Type", 0, CURLH_HEADER, -1, &header) != CURLHE_OK)
        return {};
    std::string_view value = header->value;
    value = value.substr(0, value.find(';'));
    const std::size_t end = value.find_last_not_of(" \t");
    return lowerCase(value.substr(0, end == std::string_view::npos ? 0 : end + 1));
}

std::size_t HttpExchange::receive(char* data, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<HttpExchange*>(self);
    const std::size_t length = size * count;
    if (exchange.reply_.size() + length > maximumBody) {
        exchange.stop_ = Stop::bodyTooLarge;
        return 0;
    }
    exchange.reply_.append(data, length);
    return length;
}

std::size_t HttpExchange::noteHeader(char*, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<HttpExchange*>(self);
    exchange.lastActivity_ = std::chrono::steady_clock::now();
    exchange.headerBytes_ += size * count;
    if (exchange.headerBytes_ > maximumHeaders) {
        exchange.stop_ = Stop::headersTooLarge;
        return 0;
    }
    return size * count;
}

// The connection stands, and nothing of the request has been sent.
int HttpExchange::beforeRequest(void* self, char*, char*, int, int) {
    auto& exchange = *static_cast<HttpExchange*>(self);
    const char* url = nullptr;
    curl_easy_getinfo(exchange.handle_.get(), CURLINFO_EFFECTIVE_URL, &url);
    if (!exchange.origin_.empty() && originOf(url) == exchange.origin_)
        return CURL_PREREQFUNC_OK;
    exchange.stop_ = Stop::elsewhere;
    return CURL_PREREQFUNC_ABORT;
}

// The library's own low-speed limit averages over seconds and so ends a connection that brings a
// byte now and then; what is wanted ends one that brings nothing. Called at least once a second.
int HttpExchange::watchProgress(void* self, curl_off_t, curl_off_t down, curl_off_t,
                                curl_off_t up) {
    auto& exchange = *static_cast<HttpExchange*>(self);
    const auto now = std::chrono::steady_clock::now();
    // A connection that has just been made counts as activity too.
    curl_off_t connected = 0;
    curl_easy_getinfo(exchange.handle_.get(), CURLINFO_PRETRANSFER_TIME_T, &connected);
    if (const curl_off_t progress = connected + down + up; progress != exchange.progress_) {
        exchange.progress_ = progress;
        exchange.lastActivity_ = now;
    }
    if (now - exchange.lastActivity_ >= exchange.limits_.idle)
        exchange.stop_ = Stop::idle;
    else if (now - exchange.start_ >= exchange.limits_.total)
        exchange.stop_ = Stop::total;
    return exchange.stop_ == Stop::none ? 0 : 1;
}

}  // namespace quorl
