#pragma once

#include "PacketSocket.h"
#include "Port.h"
#include "RunLoop.h"

#include <memory>

namespace quorl {

/// A private port: one end of a packet connection, whose other end is its send right. The port
/// keeps a share of the send right, so its own receiving never ends before invalidate().
class SocketPort final : public Port, private RunLoopSource {
  public:
    /// Null, with a log line, when the system has no descriptors to give.
    static std::unique_ptr<SocketPort> make();
    ~SocketPort() override;

    SendRightPtr sendRight() override { return sendRight_; }
    void setHandler(Handler handler) override { handler_ = std::move(handler); }
    void addToRunLoop(RunLoop& loop) override;
    void invalidate() override;

  private:
    SocketPort(FileDescriptor receiver, SendRightPtr sendRight);
    int descriptor() const override { return socket_.get(); }
    void ready() override;

    FileDescriptor socket_;
    SendRightPtr sendRight_;
    Handler handler_;
    PacketReceiver receiver_;
    RunLoop* loop_ = nullptr;
};

}  // namespace quorl
