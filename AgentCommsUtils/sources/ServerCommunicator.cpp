#include "ServerCommunicator.h"

#include "AgentIdentity.h"
#include "CertificateSettings.h"
#include "CommonUtils.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "HttpClient.h"
#include "Log.h"
#include "Logger.h"
#include "MachineDomain.h"
#include "ServerAddress.h"
#include "SystemPaths.h"
#include "WaitingLock.h"

namespace quorl {
namespace {

const std::string apiGetAccessKey = "/RestAPI/logonagent/getAccessKey";
const std::string apiUpdateStatus = "/RestAPI/logonagent/updateStatus";

/// Closes the process-level log at the end of the scope, whichever way it is left.
struct LogClosing {
    LogClosing() = default;
    LogClosing(const LogClosing&) = delete;
    LogClosing& operator=(const LogClosing&) = delete;
    ~LogClosing() { destroyLog(); }
};

Value& loadConfiguration(const std::string& logPath, const std::string& configurationPath) {
    // First, so that what the loading has to say is logged.
    initLog(logPath);
    return getProductConfig(configurationPath);
}

std::string machineFields() {
    return "machineName=" + urlEncode(localizedHostName()) +
           "&domainName=" + urlEncode(getMachineDomainName().value_or(""));
}

bool isError(const Value& result) {
    return member(result, "ERROR_MSG") != nullptr;
}

// Longer than a call may last, for the holder is registering.
constexpr std::chrono::seconds registrationWait{65};

}  // namespace

ServerCommunicator::ServerCommunicator(const Clock& clock)
    : configurationPath_(systemPaths().supportDirectory() + "/config.plist"),
      logPath_(ownDirectory() + "/VantorixClient.log"),
      configuration_(loadConfiguration(logPath_, configurationPath_)),
      clock_(clock) {
    warnOfUncheckedCertificates(configuration_);
    removeConfigurationLeftovers(configurationPath_);
    if (isAccessKeyExists()) {
        // Of an agent that was killed between obtaining its identity and spending the key.
        if (!configText(configuration_, "INSTALLATION_KEY").empty() &&
            changeConfiguration({{"INSTALLATION_KEY", ""}}, configurationPath_))
            configuration_["INSTALLATION_KEY"] = "";
        logLine("Agent key already present in the conf.");
        return;
    }
    logLine("Agent key not present. Going to get agent key...");
    if (getAccessKey())
        logLine("Agent key obtained successfully.");
}

bool ServerCommunicator::isAccessKeyExists() const {
    return !configText(configuration_, "AGENT_ID").empty() &&
           !configText(configuration_, "ACCESS_KEY").empty();
}

// What is signed in the order of the agreed interface; a swap is a signature that no server takes.
// NOLINTNEXTLINE(bugprone-easily-swappable-parameters)
std::optional<Value> ServerCommunicator::getAuthRequestHeaders(const std::string& signingKey,
                                                               const std::string& agentId,
                                                               const std::string& reqURI,
                                                               const std::string& reqType) const {
    logLine("getAuthRequestHeaders: Going to get req. auth Header...");
    const std::string date = getCurrentUTCDate(clock_);
    const std::string digest =
        convertDataBytesToHex(getHMACSHA256Hash(signingKey, date + reqType + reqURI));
    const std::string signature = base64Encode(asBytes(digest));
    if (signature.empty()) {
        logLine("getAuthRequestHeaders: Failed to generate authHeader hash");
        return std::nullopt;
    }
    Value headers = {{"Content-Type", "application/x-www-form-urlencoded"},
                     {"idm-date", date},
                     {"Authorization", "Basic " + agentId + ":" + signature}};
    logLine("getAuthRequestHeaders: reqAuthheaders - {}", headers);
    return headers;
}

Value ServerCommunicator::send(const std::string& reqURI, const std::string& reqType,
                               const std::string& reqData, const Value& headers,
                               HttpLimits limits) {
    const std::optional<ServerAddress> server = serverAddress(configuration_);
    if (!server)
        return {{"ERROR_MSG", "the server is not configured correctly"}};
    const std::string url =
        constructServerURL(server->host, server->port, server->contextPath, reqURI);
    HttpClient client(callCertificatePolicy(configuration_), limits);
    Value result = client.makeSyncRequest(reqType, url, reqType == "GET" ? reqData : "",
                                          reqType == "POST" ? reqData : "", headers);
    lastStatus_ = client.status();
    return result;
}

std::optional<Value> ServerCommunicator::sendRequestWithAuthHeader(const std::string& reqURI,
                                                                   const std::string& reqType,
                                                                   Value* reqHeader,
                                                                   const std::string& reqData,
                                                                   HttpLimits limits) {
    logLine("sendRequestWithAuthHeader: Going to send req. with auth header...");
    if (!isAccessKeyExists()) {
        logLine("sendRequestWithAuthHeader: Agent key not present or Internal error occured");
        return std::nullopt;
    }
    const std::optional<Value> signedHeaders =
        getAuthRequestHeaders(configText(configuration_, "ACCESS_KEY"),
                              configText(configuration_, "AGENT_ID"), reqURI, reqType);
    if (!signedHeaders || signedHeaders->empty()) {
        logLine("sendRequestWithAuthHeader: Auth request header computation error");
        return std::nullopt;
    }
    Value ownHeaders = Value::object();
    Value& headers = reqHeader ? *reqHeader : ownHeaders;
    if (!headers.is_object())
        headers = Value::object();
    headers.update(*signedHeaders);
    return send(reqURI, reqType, reqData, headers, limits);
}

bool ServerCommunicator::getAccessKey() {
    logLine("getAccessKey: Going to get Agent Key...");
    const std::string installationKey = configText(configuration_, "INSTALLATION_KEY");
    if (installationKey.empty())
        return false;
    // From before the call until the identity is stored: of two agents that register at once, the
    // second takes what the first one obtained.
    const auto lock = WaitingLock::take(systemPaths().supportDirectory() + "/registration.lock",
                                        registrationWait);
    if (!lock) {
        logLine("getaccessKey: no lock for the registration: {}", lock.error());
        return false;
    }
    if (takeStoredIdentity())
        return true;
    const std::optional<Value> headers =
        getAuthRequestHeaders(installationKey, "MAC", apiGetAccessKey, "POST");
    if (!headers) {
        logLine("getaccessKey: Request header generation failed");
        return false;
    }
    const std::string form =
        machineFields() + "&version=" + configText(configuration_, "VERSION") + "&osType=" + "Mac";
    const Value reply = send(apiGetAccessKey, "POST", form, *headers);
    if (isError(reply)) {
        logLine(
            "getaccessKey: unable to get agent key  - Error occured while sending req. to server");
        return false;
    }
    const std::optional<AgentIdentity> identity = readAgentIdentity(reply);
    if (!identity) {
        logLine("getaccessKey: unable to get agent key  - Invalid response from server");
        return false;
    }
    if (!storeAgentIdentity(*identity, configurationPath_)) {
        logLine("getaccessKey: the agent key could not be stored, the installation key stays");
        return false;
    }
    configuration_["ACCESS_KEY"] = identity->key;
    configuration_["AGENT_ID"] = identity->id;
    configuration_["INSTALLATION_KEY"] = "";
    return true;
}

bool ServerCommunicator::takeStoredIdentity() {
    const StoredConfig stored = readConfig(configurationPath_);
    for (const char* key : {"AGENT_ID", "ACCESS_KEY"})
        if (configText(stored.settings, key).empty())
            return false;
    for (const char* key : {"AGENT_ID", "ACCESS_KEY", "INSTALLATION_KEY"})
        configuration_[key] = stored.settings[key];
    return true;
}

bool ServerCommunicator::updateAgentStatus(const std::optional<std::string>& status) {
    initLog(logPath_);
    const LogClosing closing;
    logLine("updateAgentStatus: Going to update agent status - {}", status);
    if (!status || !isAccessKeyExists()) {
        logLine("updateAgentStatus: Agent key not found or status nil");
        return false;
    }
    const std::optional<Value> headers =
        getAuthRequestHeaders(configText(configuration_, "ACCESS_KEY"),
                              configText(configuration_, "AGENT_ID"), apiUpdateStatus, "POST");
    if (!headers) {
        logLine("updateAgentStatus: Request header generation failed");
        return false;
    }
    const std::string form = "status=" + *status + "&" + machineFields() +
                             "&version=" + configText(configuration_, "VERSION");
    if (isError(send(apiUpdateStatus, "POST", form, *headers))) {
        logLine(
            "updateAgentStatus: unable to update agent status  - Error occured while sending req. "
            "to server");
        return false;
    }
    logLine("updateAgentStatus: Agent status updated successfully.");
    return true;
}

}  // namespace quorl
