#include "EnrollmentHandler.h"

#include "ConfigParser.h"
#include "EnrollmentSync.h"
#include "Log.h"
#include "Logger.h"
#include "OfflineDataHandler.h"
#include "SystemPaths.h"

#include <ctime>

namespace quorl {
namespace {

const std::string getEnrollmentURI = "/RestAPI/logonagent/mfa/getOfflineEnrollment";
const std::string addEnrollmentURI = "/RestAPI/logonagent/mfa/addOfflineEnrollment";

Value openLogAndLoadConfiguration() {
    // First, so that what the loading has to say is logged.
    initLog(systemPaths().supportDirectory() + "/VantorixClient.log");
    return getProductConfig(getConfigFilePath());
}

}  // namespace

EnrollmentHandler::EnrollmentHandler(const Clock& clock)
    : clock_(clock),
      configDetails_(openLogAndLoadConfiguration()),
      isOfflineMFA_(isTrue(configDetails_, "OFFLINE_MFA")) {}

ServerCommunicator& EnrollmentHandler::communicator() {
    if (!communicator_) {
        communicator_.emplace(clock_);
        // It may just have got its key.
        configDetails_ = getProductConfig(getConfigFilePath());
    }
    return *communicator_;
}

std::optional<Value> EnrollmentHandler::getAddEnrollmentHeader() {
    ServerCommunicator& server = communicator();
    return server.getAuthRequestHeaders(configText(configDetails_, "ACCESS_KEY"),
                                        configText(configDetails_, "AGENT_ID"), addEnrollmentURI,
                                        "POST");
}

std::optional<std::string> EnrollmentHandler::getEnrollmentData(
    const std::optional<std::string>& dataAccessToken) {
    logLine("EnrollmentHandler::getEnrollmentData : getEnrollmentData from the Server ");
    if (!isTrue(configDetails_, "RESTRICT_BADCERT"))
        logLine(
            "EnrollmentHandler::getEnrollmentData : RESTRICT_BADCERT is not \"true\": anyone on "
            "the way to the server can send a record that signs them in as anybody");
    const std::clock_t start = std::clock();
    const std::string form = dataAccessToken ? "DATA_ACCESS_TOKEN=" + *dataAccessToken : "";
    std::optional<std::string> storedUser;
    ServerCommunicator& server = communicator();
    if (!server.isAccessKeyExists()) {
        logLine("EnrollmentHandler::getEnrollmentData :unable to get Agent key for API protection");
    } else {
        // Whoever is stored while the server answers is not in its list yet.
        const auto storedBefore = OfflineDataHandler::storedUsers();
        Value body = server.sendRequestWithAuthHeader(getEnrollmentURI, "POST", nullptr, form)
                         .value_or(Value());
        SyncEnd end = takeAnswer({std::move(body), server.lastStatus()}, storedBefore, clock_);
        if (end.atOnce)
            return std::nullopt;
        storedUser = std::move(end.storedUser);
    }
    logLine("EnrollmentHandler::getEnrollmentData : total time taken to sync is {:f}",
            static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    return storedUser;
}

}  // namespace quorl
