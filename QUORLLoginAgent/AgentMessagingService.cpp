#include "AgentMessagingService.h"

#include "KeyedArchive.h"
#include "Log.h"
#include "Redaction.h"
#include "Wipe.h"

namespace quorl {
namespace {

constexpr std::chrono::seconds sendDeadline{5};
constexpr std::chrono::milliseconds pollInterval{100};

PortMessage makeMessage(const std::optional<Bytes>& data, MessageId::Id msgid,
                        SendRightPtr replyPort) {
    PortMessage message{.msgid = msgid, .replyPort = std::move(replyPort)};
    if (data)
        message.components.push_back(*data);
    return message;
}

// Requests and results hold secrets: no copy of theirs stays here.
void wipeComponents(PortMessage& message) {
    for (Bytes& component : message.components)
        wipe(component);
}

void transmit(SendRight& right, PortMessage message) {
    right.send(message, sendDeadline);
    wipeComponents(message);
}

}  // namespace

AgentMessagingService::AgentMessagingService(PortSystem& ports) : ports_(ports) {}

AgentMessagingService::~AgentMessagingService() = default;

void AgentMessagingService::run(SendRightPtr appPort) {
    remotePort_ = std::move(appPort);
    runLoop_ = ports_.makeRunLoop();
    openLocalPort();
    // Before the name exists: no request can reach the application ahead of the check-in.
    sendMsgToApp(std::nullopt, MessageId::checkIn);

    mfaServerPort_ = ports_.servicePortWithName(bootstrapName);
    if (!mfaServerPort_) {
        logLine("AgentMessagingService : Unable to open MFA Server port.");
        return;
    }
    mfaServerPort_->setHandler([this](PortMessage message) {
        handlePortMessage(std::move(message), Origin::servicePort);
    });
    mfaServerPort_->addToRunLoop(*runLoop_);
    logLine("AgentMessagingService : Server running...");
    do
        runLoop_->runFor(pollInterval);
    while (!isServiceDone);
    logLine("AgentMessagingService : Server exiting...");
    mfaServerPort_->invalidate();
    if (localPort_)
        localPort_->invalidate();
}

bool AgentMessagingService::openLocalPort() {
    auto port = ports_.makePort();
    if (!port)
        return false;
    port->setHandler(
        [this](PortMessage message) { handlePortMessage(std::move(message), Origin::localPort); });
    port->addToRunLoop(*runLoop_);
    localPort_ = std::move(port);
    return true;
}

void AgentMessagingService::sendMsgToApp(const std::optional<Bytes>& data, MessageId::Id msgid) {
    logLine("AgentMessagingService : sendMsgToApp - {}", std::uint32_t{msgid});
    if (!remotePort_)
        return;
    // The outcome is not looked at: there is nobody to tell.
    transmit(*remotePort_,
             makeMessage(data, msgid, localPort_ ? localPort_->sendRight() : nullptr));
    logLine("AgentMessagingService : Message sent to the app..");
}

void AgentMessagingService::sendMsgToClient(const std::optional<Bytes>& data, MessageId::Id msgid) {
    logLine("AgentMessagingService : sendMsgToClient - {}", std::uint32_t{msgid});
    if (!mfaClientPort_)
        return;
    transmit(*mfaClientPort_, makeMessage(data, msgid, nullptr));
    logLine("AgentMessagingService : Message sent to MFA client..");
}

void AgentMessagingService::handlePortMessage(PortMessage message, Origin origin) {
    logLine("AgentMessagingService : handlePortMessage got message");
    if (message.msgid == MessageId::result)
        handleResult(message, origin);
    else if (message.msgid == MessageId::request)
        handleRequest(message);
    wipeComponents(message);
}

void AgentMessagingService::handleResult(const PortMessage& message, Origin origin) {
    // Else a client could answer another one's request, or by naming its own connection as reply
    // port send the relay round in a circle.
    if (origin == Origin::servicePort) {
        logLine("AgentMessagingService : result from outside dropped");
        return;
    }
    if (message.components.empty())
        return;
    logLine("AgentMessagingService : sending response to pam_kesh");
    sendMsgToClient(message.components.front(), MessageId::result);
    // One answer to a request: what comes later finds nobody to go to.
    mfaClientWatch_.reset();
    mfaClientPort_.reset();
}

void AgentMessagingService::clientHasGone() {
    logLine("AgentMessagingService : the requester has gone");
    mfaClientWatch_.reset();
    mfaClientPort_.reset();
    sendMsgToApp(std::nullopt, MessageId::withdrawn);
}

void AgentMessagingService::handleRequest(PortMessage& message) {
    logLine("AgentMessagingService : received Request from pam_kesh");
    if (!message.replyPort)
        return;
    mfaClientWatch_.reset();
    mfaClientPort_ = std::move(message.replyPort);
    mfaClientWatch_ = mfaClientPort_->watchReceiver(*runLoop_, [this] { clientHasGone(); });
    if (message.components.empty())
        return;
    {
        Value request = unarchive(message.components.front()).value_or(Value());
        const WipeAtExit wiped(request);
        logLine("{}", redactedDescription(request));
    }
    // An answer to an earlier request may be on its way: it goes to that one's port and ends there.
    if (!openLocalPort()) {
        mfaClientWatch_.reset();
        mfaClientPort_.reset();
        return;
    }
    sendMsgToApp(message.components.front(), MessageId::forwardedRequest);
}

}  // namespace quorl
