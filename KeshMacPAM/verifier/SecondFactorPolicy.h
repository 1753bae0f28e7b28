#pragma once

#include "ConfigParser.h"

#include <optional>

namespace quorl {

/// Whether the self-service server can be asked right now.
enum class ServerState {
    answers,           ///< a signed call was answered
    silent,            ///< refused, unknown or without an answer in time
    wrongCertificate,  ///< somebody answered who cannot prove to be the server
};

/// How the person can be asked.
enum class Way { window, text };

/// What the local record says of an offline sign-in, the codes that it owes included.
enum class OfflineState {
    allowed,
    notEnrolled,  ///< no record, or one that owes no factor: its page would ask for nothing
    limitReached,
    switchedOff,
};

/// What the configuration says, as far as it decides.
struct SecondFactorSettings {
    ConfigState state = ConfigState::missing;
    bool secondFactorOn = false;         ///< LOGIN_MFA
    bool bypassWhenUnreachable = false;  ///< BYPASS_MFA_SERVERUNREACH
    bool enforced = false;               ///< IS_MFA_ENFORCED
};

/// What happens to a sign-in.
enum class Decision {
    ignoreNeverSetUp,
    ignoreSwitchedOff,
    ignoreUnreachable,  ///< let in without a second factor, as the configuration allows
    onlinePage,
    offlinePage,
    offlineCodes,  ///< in the conversation
    denyDamaged,
    denyFirstAtLoginScreen,  ///< in a text service, without a usable record
    denyLimitReached,
    denyUnreachable,
    denyUnreachableEnforced,
    denyCertificate,
};

/// What is done about a sign-in of a user with that record, by that way, with the server in that
/// state. The one place that decides it.
Decision decide(const SecondFactorSettings& settings, OfflineState offline, Way way,
                ServerState server);

/// The decision, where it is the same whatever the server's state: then there is no need to ask.
std::optional<Decision> decideWithoutServer(const SecondFactorSettings& settings,
                                            OfflineState offline, Way way);

}  // namespace quorl
