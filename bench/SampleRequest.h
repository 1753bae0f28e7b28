#pragma once

#include "Value.h"

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

}  // namespace quorl::bench
