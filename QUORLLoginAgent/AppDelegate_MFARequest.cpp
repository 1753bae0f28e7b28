#include "AppDelegate.h"
#include "KeyedArchive.h"
#include "Log.h"
#include "MFARequest.h"
#include "MessageIds.h"

namespace quorl {
namespace {

constexpr std::chrono::seconds sendDeadline{5};

std::vector<Bytes> archivedComponents(const Value& result) {
    if (result.is_null())
        return {};
    std::optional<Bytes> bytes = archive(result);
    if (!bytes) {
        logLine("sendMFAResponse : the result cannot be archived, it goes without content");
        return {};
    }
    return {std::move(*bytes)};
}

}  // namespace

void AppDelegate::handlePortMessage(const PortMessage& message) {
    logLine("handlePortMessage - {}", message.msgid);
    if (message.msgid == MessageId::checkIn) {
        logLine("handlePortMessage : Got checkin message from MFA Observer!!");
        serverPort_ = message.replyPort;
        return;
    }
    if (message.msgid != MessageId::forwardedRequest)
        return;
    logLine("handlePortMessage : Got MFA/ErrMsg request message from client via the MFA server!!");
    std::optional<Value> request;
    if (!message.components.empty())
        request = unarchive(message.components.front());
    if (!request || request->empty())
        return;
    logLine("handlePortMessage : request: {}", *request);
    mfaRequestParams_ = std::move(*request);
    isMFARequestPresent_ = true;
    const std::optional<PortalOperation> flow = chooseFlow(mfaRequestParams_);
    if (!flow)
        return;
    if (flow == PortalOperation::offlineMFA)
        isOfflineMFA_ = true;
    launchQuorlPortal(*flow);
}

void AppDelegate::sendMFAResponse(const Value& result) {
    logLine("sendMFAResponse :: initiated....");
    customBrowserWindow_->orderOut();
    clearBrowserPortal();
    if (serverPort_) {
        serverPort_->send({.msgid = MessageId::result, .components = archivedComponents(result)},
                          sendDeadline);
        logLine("sendMFAResponse: Message sent to the AgentMessagingService..");
    }
    mfaRequestParams_ = Value();
    isMFARequestPresent_ = false;
}

}  // namespace quorl
