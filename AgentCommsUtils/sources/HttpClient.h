#pragma once

#include "CertificatePolicy.h"
#include "HttpExchange.h"
#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// One HTTPS request to the server, its outcome always a dictionary: "ERROR_MSG" on failure, else
/// the parsed JSON body (null when it does not parse) or "RESPONSE_TEXT" (null when the text is no
/// UTF-8). The status code decides nothing. Serves one request.
class HttpClient {
  public:
    explicit HttpClient(CertificatePolicy certificates, HttpLimits limits = {})
        : certificates_(certificates), limits_(limits) {}

    /// Sends the request and waits for its end; never longer than the limits allow. Type is
    /// "GET" or "POST"; the parameters go with GET, the form data with POST; header values that are
    /// no texts are skipped. Redirects are followed to the same server alone. Blocks the calling
    /// thread.
    Value makeSyncRequest(const std::optional<std::string>& type,
                          const std::optional<std::string>& url, const std::string& requestParams,
                          const std::string& formData, const Value& reqHeader);

    /// The status code of the reply; 0 while there is none.
    long status() const { return status_; }

  private:
    CertificatePolicy certificates_;
    HttpLimits limits_;
    Value result_ = Value::object();
    long status_ = 0;
};

}  // namespace quorl
