#pragma once

#include "Handle.h"
#include "Port.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace quorl {

/// A send right that is one end of a connected packet socket. Dropping the last share of it closes
/// the end, which the receiver sees at once. A reply port that is sent along must be of this class.
class SocketSendRight final : public SendRight {
  public:
    explicit SocketSendRight(FileDescriptor socket) : socket_(std::move(socket)) {}
    bool send(const PortMessage& message, std::chrono::milliseconds deadline) override;
    std::unique_ptr<ReceiverWatch> watchReceiver(RunLoop& loop,
                                                 std::function<void()> gone) override;

  private:
    FileDescriptor socket_;
};

/// Why there is no message.
enum class NoMessage { nothingThere, closedByPeer, refused };

struct ReceiveFailure {
    NoMessage kind;
    std::string_view reason = {};  ///< for the log, when refused
};

/// Takes packets off sockets. Keeps one buffer, so that receiving allocates for the message alone.
class PacketReceiver {
  public:
    PacketReceiver();
    /// The next message, without waiting. Descriptors that come with a refused packet are closed.
    tl::expected<PortMessage, ReceiveFailure> receive(int socket);

  private:
    std::unique_ptr<std::uint8_t[]> buffer_;
};

/// The two ends of a new packet connection, none of them inherited by child processes.
std::optional<std::pair<FileDescriptor, FileDescriptor>> makeSocketPair();

/// Where the service of that name listens.
std::string servicePath(const std::string& runtimeDir, const std::string& name);

/// Connects to a service as its client, waiting at most until the deadline for a place; the reason
/// when it cannot be reached.
tl::expected<SendRightPtr, std::string> connectToService(const std::string& runtimeDir,
                                                         const std::string& name,
                                                         std::chrono::milliseconds deadline);

}  // namespace quorl
