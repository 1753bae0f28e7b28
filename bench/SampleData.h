#pragma once

#include "Value.h"

#include <string>

namespace quorl::bench {

/// A request as a login process sends it, with every key there is.
inline const Value& sampleRequest() {
    static const Value request = {
        {"MFA_REQUEST_URL", "/AgentMFA.cc?transaction=8f14e45fceea167a5a36dedd4bea2543"},
        {"USER_NAME", "alice.liddell"},
        {"DOMAIN_NAME", "corp.example.com"},
        {"POST_DATA", "user=alice.liddell&domain=corp.example.com"},
        {"REQUEST_HEADERS", {{"X-Session", "c4ca4238a0b923820dcc509a6f75849b"}}},
        {"OFFLINE_MFA", false},
        {"MFA_ERROR_MSG", ""},
        {"ERROR_MSG", ""},
    };
    return request;
}

/// An authenticator's data with its encrypted secret.
inline Value sampleAuthenticator(const std::string& name, const std::string& encryptedSecret) {
    return {{"AUTH_DISPLAY_NAME", name},
            {"SECRET_KEY", encryptedSecret},
            {"ALGORITHM_TYPE", "SHA1"},
            {"EXPIRY_TIME", 30},
            {"DIGITS", 6},
            {"AUTH_VARIANCE", 1}};
}

/// An enrolled user's record, with an authenticator for each enabled number.
inline Value sampleRecord(const Value& authenticators, int limit) {
    Value enabled = Value::array();
    for (const auto& [number, authenticator] : authenticators.items())
        enabled.push_back(std::stoi(number));
    return {{"POLICY_DATA",
             {{"MFA_NO_OF_FACTORS", 1},
              {"ENABLED_AUTHS", enabled},
              {"MANDATORY_AUTHS", Value::array()},
              {"OFFLINE_MFA_LIMIT_TYPE", 2},
              {"OFFLINE_MFA_LIMIT_VALUE", limit}}},
            {"USER_DATA",
             {{"AUTH_ENROLLMENT", authenticators},
              {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 3},
              {"LAST_ONLINE_MFA_TIME", 1'794'702'491}}}};
}

}  // namespace quorl::bench
