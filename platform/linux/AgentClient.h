#pragma once

#include "Handle.h"
#include "PacketSocket.h"
#include "Value.h"

#include <sys/types.h>
#include <tl/expected.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace quorl {

/// Where the agent listens, and as which account it must run. A request names a user and opens a
/// window over the login screen, so it goes to no socket that anybody else put there.
struct AgentAddress {
    std::string runtimeDir;
    uid_t account;
};

/// The address in this process's paths: the agent's account where the system has it, else the
/// account of this process.
AgentAddress agentAddress();

/// Whether an agent of that account takes connections there now.
bool agentListens(const AgentAddress& address);

/// Why a request has no result.
struct NoResult {
    enum class Kind { unreachable, dropped, timeUp, unreadable };
    Kind kind;
    std::string reason;
};

/// One request to the agent that has been sent. Destroying it withdraws it: the agent sees its
/// reply port close and takes the page away.
class AgentRequest {
  public:
    using Result = tl::expected<Value, NoResult>;

    /// Connects and sends, waiting at most until the deadline for a place.
    static tl::expected<AgentRequest, NoResult> send(const AgentAddress& address,
                                                     const Value& request,
                                                     std::chrono::milliseconds deadline);

    /// Readable as soon as take() has something to look at.
    int descriptor() const { return replies_.get(); }
    /// The outcome, if it is there; never waits. Packets that are no result are passed over, a few
    /// of them.
    std::optional<Result> take();
    /// Waits for the outcome.
    Result wait(std::chrono::milliseconds deadline);

  private:
    AgentRequest(FileDescriptor replies, SendRightPtr service);

    FileDescriptor replies_;
    SendRightPtr service_;
    std::unique_ptr<PacketReceiver> receiver_;
    int oddPackets_ = 0;
};

}  // namespace quorl
