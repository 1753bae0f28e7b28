#pragma once

#include "AgentClient.h"
#include "HostChannel.h"
#include "ServerProbe.h"
#include "WaitingLock.h"

#include <chrono>
#include <string>

namespace quorl {

/// The agent's window, which one sign-in has at a time. Made as soon as it is wanted; whatever ends
/// the process gives it back.
class AgentWindow {
  public:
    enum class End { answered, noAgent, busy, timeUp, interrupted };
    struct Answer {
        End end;
        Value result = {};
        std::string reason = {};
        std::chrono::milliseconds shown{0};
    };

    AgentWindow(HostChannel& host, AgentAddress agent, std::string lockFile)
        : host_(host), agent_(std::move(agent)), lockFile_(std::move(lockFile)) {}

    bool agentLives() const { return agentListens(agent_); }
    /// Shows what the request asks for and waits for its answer, until the time is up or a probe
    /// says that the server does not answer: then the window goes again.
    Answer show(const Value& request, HostChannel::SteadyTime until,
                const ServerProbe* probe = nullptr);

  private:
    HostChannel& host_;
    AgentAddress agent_;
    std::string lockFile_;
};

}  // namespace quorl
