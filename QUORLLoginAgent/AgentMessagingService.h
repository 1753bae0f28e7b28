#pragma once

#include "AgentChannel.h"
#include "Port.h"

#include <atomic>
#include <memory>
#include <optional>

namespace quorl {

/// The relay between the login process and the application: takes requests at the bootstrap name,
/// hands them to the application's port, and hands the application's result to the latest
/// requester. Everything but `isServiceDone` belongs to the thread that calls run().
class AgentMessagingService {
  public:
    /// Where a message came in.
    enum class Origin { localPort, servicePort };

    explicit AgentMessagingService(PortSystem& ports);
    ~AgentMessagingService();
    AgentMessagingService(const AgentMessagingService&) = delete;
    AgentMessagingService& operator=(const AgentMessagingService&) = delete;

    /// The thread's body. Checks in with the application, registers the name, serves until
    /// `isServiceDone`; returns at once when the name cannot be had. Once in an object's life.
    void run(SendRightPtr appPort);

    /// Sends to the application, with the relay's own port to reply to.
    void sendMsgToApp(const std::optional<Bytes>& data, MessageId::Id msgid);
    /// Sends to the latest requester.
    void sendMsgToClient(const std::optional<Bytes>& data, MessageId::Id msgid);
    void handlePortMessage(PortMessage message, Origin origin);

    /// Set by the application's thread to end the relay, which sees it within 0.1 s. Starts out
    /// false and is only ever set: a request to end that comes before run() got to its loop counts.
    std::atomic<bool> isServiceDone = false;

  private:
    bool openLocalPort();
    void handleRequest(PortMessage& message);
    void clientHasGone();
    void handleResult(const PortMessage& message, Origin origin);

    PortSystem& ports_;
    SendRightPtr remotePort_;
    std::unique_ptr<RunLoop> runLoop_;  // outlives the ports that are on it
    std::unique_ptr<Port> localPort_;
    std::unique_ptr<Port> mfaServerPort_;
    SendRightPtr mfaClientPort_;
    std::unique_ptr<ReceiverWatch> mfaClientWatch_;
};

}  // namespace quorl
