#include "HttpClient.h"

#include "BoundedJson.h"
#include "HttpExchange.h"
#include "Log.h"
#include "ServerAddress.h"
#include "Utf8.h"

#include <algorithm>
#include <cstdint>

namespace quorl {
namespace {

constexpr JsonLimits bodyLimits = {.bytes = HttpExchange::maximumBody, .depth = 512};

/// The dictionary or array; null for anything else.
Value parseJson(std::string_view body) {
    const auto parsed = parseJSON(body, bodyLimits);
    return parsed && parsed->is_structured() ? *parsed : Value(nullptr);
}

Value errorResult(const std::string& message) {
    return {{"ERROR_MSG", message}};
}

// Parameters go with GET alone.
std::string escapedURL(const std::string& type, const std::string& url,
                       const std::string& requestParams) {
    std::string target = url;
    if (type == "GET" && !requestParams.empty())
        target = encodeBehindServer(target + "?" + requestParams);
    // Once more, so that a query travels escaped twice: that is how the server reads it.
    return encodeBehindServer(target);
}

HttpRequest makeRequest(const std::string& type, const std::string& url,
                        const std::string& formData, const Value& reqHeader) {
    HttpRequest request;
    request.method = type;
    request.url = url;
    if (type == "POST" && !formData.empty()) {
        request.headers["content-type"] = "application/x-www-form-urlencoded";
        request.body = formData;
    }
    if (reqHeader.is_object())
        for (const auto& [name, value] : reqHeader.items())
            if (value.is_string())
                request.headers[name] = value.get<std::string>();
    return request;
}

}  // namespace

Value HttpClient::makeSyncRequest(const std::optional<std::string>& type,
                                  const std::optional<std::string>& url,
                                  const std::string& requestParams, const std::string& formData,
                                  const Value& reqHeader) {
    logLine("HttpClient : makeSyncRequest called with type {} and restrictBadCert - {}", type,
            certificates_ == CertificatePolicy::restrict ? 1 : 0);
    if (!type || type->empty() || !url) {
        logLine("HttpClient : invalid request called");
        result_ = errorResult("INVALID_REQUEST");
        return result_;
    }
    const std::string escaped = escapedURL(*type, *url, requestParams);
    HttpExchange exchange(makeRequest(*type, escaped, formData, reqHeader), certificates_, limits_);
    logLine("HttpClient: waiting for server response...");
    const HttpReply reply = exchange.perform();
    status_ = reply.status;
    logLine("HttpClient: response status code -  {}", reply.status);
    if (reply.error) {
        logLine("HttpClient: error -  {}", reply.error->description);
        logLine("HttpClient: errorCode -  {}", reply.error->code);
        logLine("HttpClient: failure reason -  {}", reply.error->reason);
        if (result_.empty())
            result_ = errorResult(reply.error->isCertificateError ? "BAD_CERT"
                                                                  : reply.error->description);
    } else if (reply.body.empty()) {
        result_ = errorResult("No response received from the server");
    } else if (reply.mediaType == "application/json") {
        result_ = parseJson(reply.body);
    } else if (isUtf8(reply.body)) {
        result_ = {{"RESPONSE_TEXT", reply.body}};
    } else {
        result_ = {{"RESPONSE_TEXT", nullptr}};
    }
    return result_;
}

}  // namespace quorl
