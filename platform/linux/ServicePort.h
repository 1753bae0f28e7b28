#pragma once

#include "Handle.h"
#include "PacketSocket.h"
#include "Port.h"
#include "RunLoop.h"
#include "ServiceName.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

namespace quorl {

/// What peers may take of a service.
struct ServiceLimits {
    std::size_t connections = 32;
    /// A peer that has said nothing for that long after connecting is dropped.
    std::chrono::milliseconds silence = std::chrono::seconds(10);
};

/// The port behind a bootstrap name: accepts connections of root's and the agent's own user's
/// processes and receives the messages of all of them. A peer that breaks the rules costs one log
/// line and loses its connection. One descriptor stands for all of it, so that any run loop can
/// watch it; at rest nothing wakes it.
class ServicePort final : public Port, private RunLoopSource {
  public:
    /// Null, with a log line, when the system has no descriptors to give.
    static std::unique_ptr<ServicePort> make(std::unique_ptr<ServiceName> name,
                                             ServiceLimits limits);
    ~ServicePort() override;

    SendRightPtr sendRight() override { return nullptr; }
    void setHandler(Handler handler) override { handler_ = std::move(handler); }
    void addToRunLoop(RunLoop& loop) override;
    void invalidate() override;

  private:
    using SteadyTime = std::chrono::steady_clock::time_point;
    // Never used twice, unlike descriptors: an event of a closed connection meets nobody.
    using ConnectionId = std::uint64_t;
    struct Connection {
        FileDescriptor socket;
        bool hasSpoken = false;
        std::optional<SteadyTime> silentUntil = std::nullopt;
    };

    ServicePort(std::unique_ptr<ServiceName> name, ServiceLimits limits, FileDescriptor events,
                FileDescriptor timer);
    int descriptor() const override { return events_.get(); }
    void ready() override;
    bool watch(int descriptor, ConnectionId id);
    void acceptPeer();
    bool admits(int socket);
    void pauseAccepting(int reason);
    void receiveFrom(ConnectionId id);
    void timeIsUp();
    void setTimer();

    std::unique_ptr<ServiceName> name_;
    ServiceLimits limits_;
    FileDescriptor events_;  // an epoll set of the listener, the timer and the connections
    FileDescriptor timer_;
    std::optional<SteadyTime> timerSetTo_;
    std::optional<SteadyTime> acceptAgainAt_;
    std::map<ConnectionId, Connection> connections_;
    ConnectionId nextId_;
    Handler handler_;
    PacketReceiver receiver_;
    RunLoop* loop_ = nullptr;
};

}  // namespace quorl
