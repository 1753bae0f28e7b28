#pragma once

#include "Clock.h"
#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// The agent's side of the server's agent API: signed requests, and the agent's own identity.
/// Making one opens the log, loads the configuration and, while the agent holds no key, asks the
/// server for it. All calls block the calling thread.
class ServerCommunicator {
  public:
    explicit ServerCommunicator(const Clock& clock = systemClock());

    /// Whether the configuration holds an agent identifier and an access key.
    bool isAccessKeyExists() const;

    /// The three headers of a signed request ("Content-Type", "idm-date", "Authorization"); nothing
    /// when the signature cannot be made.
    std::optional<Value> getAuthRequestHeaders(const std::string& signingKey,
                                               const std::string& agentId,
                                               const std::string& reqURI,
                                               const std::string& reqType) const;

    /// Sends a signed request; the signed headers are added to the caller's, where given. The data
    /// is the query of a "GET" and the form of a "POST". Nothing without a key.
    std::optional<Value> sendRequestWithAuthHeader(const std::string& reqURI,
                                                   const std::string& reqType, Value* reqHeader,
                                                   const std::string& reqData);

    /// Obtains identifier and access key with the installation key and stores both.
    bool getAccessKey();

    /// Reports the status ("install", "uninstall"); nothing as status fails. Closes the log.
    bool updateAgentStatus(const std::optional<std::string>& status);

  private:
    /// Sends the data to an endpoint of the configured server, as query or form by the method.
    Value send(const std::string& reqURI, const std::string& reqType, const std::string& reqData,
               const Value& headers) const;

    std::string configurationPath_;
    std::string logPath_;
    Value& configuration_;
    const Clock& clock_;
};

}  // namespace quorl
