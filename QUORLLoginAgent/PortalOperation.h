#pragma once

#include <string_view>

namespace quorl {

/// What the browser window is opened for.
enum class PortalOperation { mfa, selfService, offlineMFA, mfaErrorMessage, errorMessage };

/// The operation's name, as the log shows it.
constexpr std::string_view operationName(PortalOperation operation) {
    switch (operation) {
        case PortalOperation::mfa:
            return "MFA";
        case PortalOperation::selfService:
            return "SELF_SERVICE";
        case PortalOperation::offlineMFA:
            return "OFFLINE_MFA";
        case PortalOperation::mfaErrorMessage:
            return "MFA_ERROR_MSG";
        case PortalOperation::errorMessage:
            return "ERROR_MSG";
    }
    return "";
}

}  // namespace quorl
