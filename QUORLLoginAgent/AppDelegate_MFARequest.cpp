#include "AgentChannel.h"
#include "AppDelegate.h"
#include "KeyedArchive.h"
#include "Log.h"
#include "MFARequest.h"
#include "Redaction.h"
#include "Wipe.h"

namespace quorl {
namespace {

constexpr std::chrono::seconds sendDeadline{5};

Value closedResult() {
    return closedWindowResult(/*verified=*/false);
}

// A result that cannot travel is no result. The requester is told so at once: it would wait for
// nothing otherwise.
Bytes archivedResult(const Value& result) {
    if (auto bytes = archive(result); bytes && bytes->size() <= longestComponent)
        return std::move(*bytes);
    logLine("sendMFAResponse : the result cannot be sent as it is, FAILURE goes in its place");
    return archive(closedResult()).value_or(Bytes());
}

}  // namespace

void AppDelegate::handlePortMessage(PortMessage message) {
    logLine("handlePortMessage - {}", message.msgid);
    switch (message.msgid) {
        case MessageId::checkIn:
            logLine("handlePortMessage : Got checkin message from MFA Observer!!");
            serverPort_ = std::move(message.replyPort);
            break;
        case MessageId::forwardedRequest:
            handleRequest(message);
            break;
        case MessageId::withdrawn:
            requestWithdrawn();
            break;
    }
    for (Bytes& component : message.components)
        wipe(component);
}

void AppDelegate::handleRequest(const PortMessage& message) {
    logLine("handlePortMessage : Got MFA/ErrMsg request message from client via the MFA server!!");
    std::optional<Value> request;
    if (!message.components.empty())
        request = unarchive(message.components.front());
    if (!request || request->empty())
        return;
    logLine("handlePortMessage : request: {}", redactedDescription(*request));
    // Each request has a port of its own for its answer; what is still on its way to an earlier one
    // gets lost with that one's port.
    if (message.replyPort)
        serverPort_ = message.replyPort;
    request_.accept(std::move(*request));
    if (const auto fault = application_.pagesUnavailable()) {
        logLine("handlePortMessage : no page can be shown, the answer is FAILURE: {}", *fault);
        answerRequest(closedResult());
        return;
    }
    const std::optional<PortalOperation> flow = chooseFlow(request_.parameters());
    if (!flow) {
        // What still shows belongs to somebody else, and must not answer this one.
        if (shown_)
            hideBrowserPortal();
        return;
    }
    if (flow == PortalOperation::offlineMFA)
        isOfflineMFA_ = true;
    launchQuorlPortal(*flow);
}

void AppDelegate::requestWithdrawn() {
    if (!request_.isAnswerOwed())
        return;
    logLine("handlePortMessage : the requester has gone, nothing is answered");
    const bool shown = showsRequest();
    request_.forget();
    if (shown)
        hideBrowserPortal();
}

void AppDelegate::sendMFAResponse(const Value& result) {
    logLine("sendMFAResponse :: initiated....");
    hideBrowserPortal();
    answerRequest(result);
}

void AppDelegate::answerRequest(const Value& result) {
    if (serverPort_) {
        PortMessage message{.msgid = MessageId::result};
        if (!result.is_null())
            message.components.push_back(archivedResult(result));
        if (serverPort_->send(message, sendDeadline))
            logLine("sendMFAResponse: Message sent to the AgentMessagingService..");
        else
            logLine("sendMFAResponse: the AgentMessagingService did not take the message");
        for (Bytes& component : message.components)
            wipe(component);
    }
    request_.forget();
}

}  // namespace quorl
