#pragma once

#include "Clock.h"
#include "FactorSteps.h"
#include "OfflineRecord.h"
#include "authenticators/TOTPAuthenticator.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace quorl {

/// The authenticator ids that stand for one-time codes.
inline constexpr std::array<std::int64_t, 4> TOTP_AUTH_IDS = {3, 14, 16, 18};
bool isTOTP(std::int64_t authId);

/// The methods by which a user can be verified without the server.
struct OfflineMethods {
    std::map<std::int64_t, TOTPAuthenticator> authenticators;
    FactorSteps::Methods ids;

    /// The method's authenticator, or null.
    const TOTPAuthenticator* find(std::int64_t authId) const;
};

/// The record's methods: enabled, enrolled, and of one-time codes; others are left out with a log
/// line. Nothing, and a log line, when a mandatory one is not among them: it must not be skipped.
/// The clock outlives them.
std::optional<OfflineMethods> offlineMethods(const OfflineRecord& record,
                                             const std::string& accessKey, const Clock& clock);

}  // namespace quorl
