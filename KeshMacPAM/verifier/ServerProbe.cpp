#include "ServerProbe.h"

#include "ConfigParser.h"
#include "ServerCommunicator.h"

#include <sys/eventfd.h>
#include <unistd.h>

namespace quorl {
namespace {

constexpr std::chrono::seconds longestProbe{3};

ServerState askServer() {
    const Value& config = getProductConfig(getConfigFilePath());
    // Without its key a communicator would register first, which is nothing for a sign-in to wait
    // for.
    if (configText(config, "AGENT_ID").empty() || configText(config, "ACCESS_KEY").empty())
        return ServerState::silent;
    ServerCommunicator communicator(systemClock());
    const auto reply = communicator.sendRequestWithAuthHeader(
        "/RestAPI/logonagent/mfa/getOfflineEnrollment", "POST", nullptr, "",
        {.idle = longestProbe, .total = longestProbe});
    if (!reply)
        return ServerState::silent;
    if (!member(*reply, "ERROR_MSG"))
        return ServerState::answers;
    return stringValue(*reply, "ERROR_MSG") == "BAD_CERT" ? ServerState::wrongCertificate
                                                          : ServerState::silent;
}

}  // namespace

ServerProbe::ServerProbe()
    : done_(eventfd(0, EFD_CLOEXEC)), thread_([this] {
          state_ = static_cast<int>(askServer());
          eventfd_write(done_.get(), 1);
      }) {}

ServerProbe::~ServerProbe() {
    thread_.join();
}

std::optional<ServerState> ServerProbe::state() const {
    const int state = state_;
    return state < 0 ? std::nullopt : std::optional(static_cast<ServerState>(state));
}

}  // namespace quorl
