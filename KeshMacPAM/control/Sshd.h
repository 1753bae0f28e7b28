#pragma once

#include "Machine.h"

#include <map>
#include <optional>
#include <string>

namespace quorl::control {

/// What sshd does as it runs, by its own account (`sshd -T`); from its files, where it cannot be
/// asked.
struct SshdSettings {
    bool usesPam = true;
    bool canPrompt = true;  ///< KbdInteractiveAuthentication
    bool takesPasswords = true;
    bool takesKeysAlone = true;  ///< public keys, without any AuthenticationMethods
};
/// Nothing without sshd.
std::optional<SshdSettings> sshdSettings(const Machine& machine);

/// The drop-in that lets sshd ask.
inline constexpr const char* sshdDropIn = "/etc/ssh/sshd_config.d/50-kesh.conf";
inline constexpr const char* sshdDropInText = "KbdInteractiveAuthentication yes\n";

}  // namespace quorl::control
