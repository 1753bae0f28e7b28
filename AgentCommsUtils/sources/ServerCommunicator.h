#pragma once

#include "Clock.h"
#include "HttpClient.h"
#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// The agent's side of the server's agent API: signed requests, and the agent's own identity.
/// Making one opens the log, loads the configuration and, while the agent holds no key, asks the
/// server for it. All calls block the calling thread.
class ServerCommunicator {
  public:
    explicit ServerCommunicator(const Clock& clock);

    /// Whether the configuration holds an agent identifier and an access key.
    bool isAccessKeyExists() const;

    /// The three headers of a signed request ("Content-Type", "idm-date", "Authorization"); nothing
    /// when the signature cannot be made.
    std::optional<Value> getAuthRequestHeaders(const std::string& signingKey,
                                               const std::string& agentId,
                                               const std::string& reqURI,
                                               const std::string& reqType) const;

    /// Sends a signed request; the signed headers are added to the caller's, where given. The data
    /// is the query of a "GET" and the form of a "POST". Nothing without a key. Never
    /// longer than the limits allow.
    std::optional<Value> sendRequestWithAuthHeader(const std::string& reqURI,
                                                   const std::string& reqType, Value* reqHeader,
                                                   const std::string& reqData,
                                                   HttpLimits limits = {});

    /// The status code of the last reply to a signed request; 0 while there is none.
    long lastStatus() const { return lastStatus_; }

    /// Obtains identifier and access key with the installation key and stores both; true once the
    /// file holds them. Waits while another process registers.
    bool getAccessKey();

    /// Reports the status ("install", "uninstall"); nothing as status fails. Closes the log.
    bool updateAgentStatus(const std::optional<std::string>& status);

  private:
    /// Takes over the identity that the file holds by now; false when it holds none.
    bool takeStoredIdentity();

    /// Sends the data to an endpoint of the configured server, as query or form by the method.
    Value send(const std::string& reqURI, const std::string& reqType, const std::string& reqData,
               const Value& headers, HttpLimits limits = {});

    std::string configurationPath_;
    std::string logPath_;
    Value& configuration_;
    const Clock& clock_;
    long lastStatus_ = 0;
};

}  // namespace quorl
