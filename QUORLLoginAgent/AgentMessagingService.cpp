#include "AgentMessagingService.h"

#include "KeyedArchive.h"
#include "Log.h"

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

}  // namespace

AgentMessagingService::AgentMessagingService(PortSystem& ports) : ports_(ports) {}

AgentMessagingService::~AgentMessagingService() = default;

void AgentMessagingService::run(SendRightPtr appPort) {
    remotePort_ = std::move(appPort);
    runLoop_ = ports_.makeRunLoop();
    localPort_ = ports_.makePort();
    if (localPort_) {
        localPort_->setHandler([this](PortMessage message) {
            handlePortMessage(std::move(message), Origin::localPort);
        });
        localPort_->addToRunLoop(*runLoop_);
    }
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

void AgentMessagingService::sendMsgToApp(const std::optional<Bytes>& data, MessageId::Id msgid) {
    logLine("AgentMessagingService : sendMsgToApp - {}", std::uint32_t{msgid});
    if (!remotePort_)
        return;
    // The outcome is not looked at: there is nobody to tell.
    remotePort_->send(makeMessage(data, msgid, localPort_ ? localPort_->sendRight() : nullptr),
                      sendDeadline);
    logLine("AgentMessagingService : Message sent to the app..");
}

void AgentMessagingService::sendMsgToClient(const std::optional<Bytes>& data, MessageId::Id msgid) {
    logLine("AgentMessagingService : sendMsgToClient - {}", std::uint32_t{msgid});
    if (!mfaClientPort_)
        return;
    mfaClientPort_->send(makeMessage(data, msgid, nullptr), sendDeadline);
    logLine("AgentMessagingService : Message sent to MFA client..");
}

void AgentMessagingService::handlePortMessage(PortMessage message, Origin origin) {
    logLine("AgentMessagingService : handlePortMessage got message");
    if (message.msgid == MessageId::result)
        handleResult(message, origin);
    else if (message.msgid == MessageId::request)
        handleRequest(std::move(message));
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
}

void AgentMessagingService::handleRequest(PortMessage message) {
    logLine("AgentMessagingService : received Request from pam_kesh");
    if (!message.replyPort)
        return;
    mfaClientPort_ = std::move(message.replyPort);
    if (message.components.empty())
        return;
    logLine("{}", unarchive(message.components.front()).value_or(Value()));
    sendMsgToApp(message.components.front(), MessageId::forwardedRequest);
}

}  // namespace quorl
