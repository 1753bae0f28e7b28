#include "ServerCommunicator.h"

#include "CommonUtils.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "HttpClient.h"
#include "Log.h"
#include "Logger.h"
#include "MachineDomain.h"
#include "SystemPaths.h"

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

/// What the server says about the agent in its reply to the key request.
struct AgentProperties {
    std::string id;
    std::string encryptedKey;
    std::string key;
};

/// The properties; nothing unless the reply is whole, its key included: an agent that stored half
/// an identity would have spent its installation key on nothing.
std::optional<AgentProperties> readAgentProperties(const Value& reply) {
    const Value* const properties = member(reply, "agent_props");
    if (stringValue(reply, "result") != "success" || !properties)
        return std::nullopt;
    const auto id = stringValue(*properties, "agent_id");
    const auto encryptedKey = stringValue(*properties, "agent_access_key");
    if (!id || id->empty() || !encryptedKey)
        return std::nullopt;
    auto key = decrypt(*encryptedKey, aesKey, iv);
    if (!key || key->empty())
        return std::nullopt;
    return AgentProperties{*id, *encryptedKey, std::move(*key)};
}

}  // namespace

ServerCommunicator::ServerCommunicator(const Clock& clock)
    : configurationPath_(systemPaths().supportDirectory() + "/config.plist"),
      logPath_(systemPaths().supportDirectory() + "/VantorixClient.log"),
      configuration_(loadConfiguration(logPath_, configurationPath_)),
      clock_(clock) {
    if (isAccessKeyExists()) {
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
                               const std::string& reqData, const Value& headers) const {
    const std::string url = constructServerURL(configText(configuration_, "SERVERNAME"),
                                               configText(configuration_, "PORTNUMBER"),
                                               configText(configuration_, "CONTEXT_PATH"), reqURI);
    HttpClient client(isTrue(configuration_, "RESTRICT_BADCERT"));
    return client.makeSyncRequest(reqType, url, reqType == "GET" ? reqData : "",
                                  reqType == "POST" ? reqData : "", headers);
}

std::optional<Value> ServerCommunicator::sendRequestWithAuthHeader(const std::string& reqURI,
                                                                   const std::string& reqType,
                                                                   Value* reqHeader,
                                                                   const std::string& reqData) {
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
    return send(reqURI, reqType, reqData, headers);
}

bool ServerCommunicator::getAccessKey() {
    logLine("getAccessKey: Going to get Agent Key...");
    const std::string installationKey = configText(configuration_, "INSTALLATION_KEY");
    if (installationKey.empty())
        return false;
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
    const std::optional<AgentProperties> agent = readAgentProperties(reply);
    if (!agent) {
        logLine("getaccessKey: unable to get agent key  - Invalid response from server");
        return false;
    }
    configuration_["ACCESS_KEY"] = agent->key;
    configuration_["AGENT_ID"] = agent->id;
    // The installation key goes last: until then an interrupted agent can ask again.
    addConfiguration("AGENT_ID", agent->id, configurationPath_);
    addConfiguration("ACCESS_KEY", agent->encryptedKey, configurationPath_);
    addConfiguration("INSTALLATION_KEY", "", configurationPath_);
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
