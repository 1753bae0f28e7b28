#include "MFARequest.h"

namespace quorl {

std::optional<PortalOperation> chooseFlow(const Value& request) {
    if (member(request, "MFA_REQUEST_URL"))
        return PortalOperation::mfa;
    if (member(request, "OFFLINE_MFA"))
        return PortalOperation::offlineMFA;
    if (member(request, "MFA_ERROR_MSG"))
        return PortalOperation::mfaErrorMessage;
    if (member(request, "ERROR_MSG"))
        return PortalOperation::errorMessage;
    return std::nullopt;
}

PageRequest makePageRequest(const std::string& url, const Value& request) {
    PageRequest page{.url = url};
    if (auto body = stringValue(request, "POST_DATA"); body && !body->empty()) {
        page.method = "POST";
        page.body = std::move(body);
    }
    const Value* headers = member(request, "REQUEST_HEADERS");
    if (headers && headers->is_object()) {
        for (const auto& [name, value] : headers->items()) {
            if (value.is_string())
                page.headers.emplace_back(name, value.get<std::string>());
        }
    }
    return page;
}

Value closedWindowResult(bool verified) {
    return {{"MFA_AUTH_RESULT", verified ? "SUCCESS" : "FAILURE"}};
}

}  // namespace quorl
