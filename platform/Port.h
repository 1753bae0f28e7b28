#pragma once

#include "Bytes.h"
#include "RunLoop.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quorl {

struct PortMessage;

/// Watches the receiver that a send right leads to; ends with this object.
class ReceiverWatch {
  public:
    virtual ~ReceiverWatch() = default;
};

/// A send right: where messages go. Copied by sharing; any thread.
class SendRight {
  public:
    virtual ~SendRight() = default;
    /// Sends one message, waiting at most until the deadline for room. False when it could not be
    /// sent (receiver gone, time is up, message too large).
    virtual bool send(const PortMessage& message, std::chrono::milliseconds deadline) = 0;
    /// Calls once, on the loop's thread, when the receiver has gone. The right outlives the watch,
    /// the loop, too; the callback may destroy the watch.
    virtual std::unique_ptr<ReceiverWatch> watchReceiver(RunLoop& loop,
                                                         std::function<void()> gone) = 0;
};
using SendRightPtr = std::shared_ptr<SendRight>;

/// What travels between ports: an id, an ordered list of opaque components, perhaps a reply port.
struct PortMessage {
    std::uint32_t msgid = 0;
    std::vector<Bytes> components = {};
    SendRightPtr replyPort = nullptr;
};

/// A receive right. Made by a PortSystem, used on the thread of the run loop it is added to.
class Port {
  public:
    using Handler = std::function<void(PortMessage)>;

    virtual ~Port() = default;
    /// The right to send to this port; null for a service port, which is found by its name.
    virtual SendRightPtr sendRight() = 0;
    /// Who receives the messages. Set before the port is added to a run loop.
    virtual void setHandler(Handler handler) = 0;
    virtual void addToRunLoop(RunLoop& loop) = 0;
    /// Stops receiving, leaves its run loop, and frees the name of a service port. Idempotent.
    virtual void invalidate() = 0;
};

/// Makes ports. Any thread, several at once.
class PortSystem {
  public:
    virtual ~PortSystem() = default;
    /// A new port, or null when the system has none to give.
    virtual std::unique_ptr<Port> makePort() = 0;
    /// Registers the bootstrap name and gives the port behind it; null when the name cannot be had
    /// (another live agent holds it, the folder cannot be written), with a log line that says why.
    virtual std::unique_ptr<Port> servicePortWithName(const std::string& name) = 0;
    /// Keeps the bootstrap name beyond its port's end, for a start anew in this one's place. Where
    /// names cannot be kept, nothing happens.
    virtual void keepServiceName() {}
    /// A run loop for the calling thread.
    virtual std::unique_ptr<RunLoop> makeRunLoop() = 0;
};

}  // namespace quorl
