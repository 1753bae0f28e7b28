#pragma once

#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// One HTTPS request to the server, its outcome always a dictionary: "ERROR_MSG" on failure, else
/// the parsed JSON body (null when it does not parse) or "RESPONSE_TEXT" (null when the text is no
/// UTF-8). The status code decides nothing. Serves one request.
class HttpClient {
  public:
    explicit HttpClient(bool restrictBadCert) : restrictBadCert_(restrictBadCert) {}

    /// Sends the request and waits for its end; idle time-out 15 s, no overall deadline. Type is
    /// "GET" or "POST"; the parameters go with GET, the form data with POST; header values that are
    /// no texts are skipped. Redirects are followed, to https alone. Blocks the calling thread.
    Value makeSyncRequest(const std::optional<std::string>& type,
                          const std::optional<std::string>& url, const std::string& requestParams,
                          const std::string& formData, const Value& reqHeader);

  private:
    bool restrictBadCert_;
    Value result_ = Value::object();
};

}  // namespace quorl
