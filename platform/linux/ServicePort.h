#pragma once

#include "Handle.h"
#include "PacketSocket.h"
#include "Port.h"
#include "RunLoop.h"
#include "ServiceName.h"

#include <chrono>
#include <list>
#include <memory>
#include <optional>

namespace quorl {

/// What peers may take of a service.
struct ServiceLimits {
    std::size_t connections = 32;
    /// A peer that has said nothing for that long after connecting is dropped.
    std::chrono::milliseconds silence = std::chrono::seconds(10);
    /// Serves processes of the account that the service itself has, too. An agent's own account is
    /// that of its network process, which no sandbox holds: only whoever tries things out as an
    /// ordinary user wants this.
    bool ownAccount = false;
};

/// The port behind a bootstrap name: accepts connections of root's processes and receives the
/// messages of all of them. A peer that breaks the rules costs one log
/// line and loses its connection. At rest nothing wakes it.
class ServicePort final : public Port {
  public:
    /// Null, with a log line, when the system has no descriptors to give.
    static std::unique_ptr<ServicePort> make(std::shared_ptr<ServiceName> name,
                                             ServiceLimits limits);
    ~ServicePort() override;

    SendRightPtr sendRight() override { return nullptr; }
    void setHandler(Handler handler) override { handler_ = std::move(handler); }
    void addToRunLoop(RunLoop& loop) override;
    void invalidate() override;

  private:
    using SteadyTime = std::chrono::steady_clock::time_point;

    // One of the descriptors that the port watches, and what it does when that is readable.
    class Watched : public RunLoopSource {
      public:
        using Action = void (ServicePort::*)();
        Watched(ServicePort& port, int descriptor, Action action)
            : port_(port), descriptor_(descriptor), action_(action) {}
        int descriptor() const override { return descriptor_; }
        void ready() override { (port_.*action_)(); }

      private:
        ServicePort& port_;
        int descriptor_;
        Action action_;
    };

    class Peer final : public RunLoopSource {
      public:
        Peer(ServicePort& port, FileDescriptor socket) : port_(port), socket_(std::move(socket)) {}
        int descriptor() const override { return socket_.get(); }
        void ready() override { port_.receiveFrom(*this); }

        bool hasSpoken = false;
        std::optional<SteadyTime> silentUntil;

      private:
        ServicePort& port_;
        FileDescriptor socket_;
    };
    enum class Receipt { peerStays, peerIsGone };

    ServicePort(std::shared_ptr<ServiceName> name, ServiceLimits limits, FileDescriptor timer);
    void acceptPeer();
    bool admits(int socket);
    void pauseAccepting(int reason);
    Receipt receiveFrom(Peer& peer);
    void timeIsUp();
    void dropSilentPeers(SteadyTime now);
    void setTimer();

    std::shared_ptr<ServiceName> name_;
    ServiceLimits limits_;
    FileDescriptor timer_;
    Watched listenerSource_;
    Watched timerSource_;
    std::optional<SteadyTime> timerSetTo_;
    std::optional<SteadyTime> acceptAgainAt_;
    std::list<Peer> peers_;
    Handler handler_;
    PacketReceiver receiver_;
    RunLoop* loop_ = nullptr;
};

}  // namespace quorl
