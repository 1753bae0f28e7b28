#pragma once

#include "FixedText.h"
#include "VerifierProtocol.h"

#include <chrono>
#include <optional>
#include <string_view>

namespace quorl::pam {

enum class Asked { Exempt, Require };

/// What an administrator sets, on the PAM line or in the options file. Each setting that cannot be
/// used leaves what held before and is named in `ignored`: a slip of the pen denies nobody.
struct Options {
    FixedText<1024> services{
        "lightdm sddm gdm-password xdm lxdm greetd xrdp-sesman cockpit login sshd"};
    Asked root = Asked::Exempt;
    Asked local = Asked::Exempt;
    std::optional<verifier::Mode> mode;         ///< for every service
    std::optional<verifier::Mode> serviceMode;  ///< "mode.SERVICE", for the one that asks
    std::chrono::seconds timeout{300};
    FixedText<512> page{"/mfa/verify"};
    verifier::KeyRule key = verifier::KeyRule::Present;
    bool echo = true;
    bool debug = false;

    FixedText<200> ignored;  ///< names of settings that could not be used

    verifier::Mode effectiveMode() const {
        return serviceMode.value_or(mode.value_or(verifier::Mode::Auto));
    }
};

/// Takes one setting, "name=value" or "name = value", over; "debug" stands for "debug=yes".
void applySetting(std::string_view setting, std::string_view service, Options& options);

enum class OptionsFile { Absent, Read, Refused };

/// Reads the options file. It is refused when others than its ruling account could have written it.
OptionsFile readOptionsFile(const char* path, std::string_view service, Options& options);

/// Whether the service is one of the list. "sudo" and "su" stand for "sudo-i" and "su-l", too.
bool listed(std::string_view services, std::string_view service);

}  // namespace quorl::pam
