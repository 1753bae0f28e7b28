#include "PageMessage.h"

#include "BoundedJson.h"

namespace quorl {
namespace {

constexpr JsonLimits messageLimits = {.bytes = 1 << 20, .depth = 32};

Value valueOr(const Value& message, std::string_view key, const char* fallback) {
    const Value* value = member(message, key);
    return value && !value->is_null() ? *value : Value(fallback);
}

bool isText(const Value& value, std::string_view text) {
    return value.is_string() && value.get_ref<const std::string&>() == text;
}

}  // namespace

Value parsePageMessage(const std::optional<std::string>& body) {
    const auto message = body ? parseJSON(*body, messageLimits) : std::nullopt;
    return message && message->is_object() ? *message : Value();
}

PageMethod pageMethod(const Value& message) {
    const auto method = stringValue(message, "METHOD");
    if (method == "onButtonOK")
        return PageMethod::buttonOK;
    if (method == "onButtonChoose")
        return PageMethod::buttonChoose;
    if (method == "getOfflineEnrollmentAPIAuthzHeader")
        return PageMethod::authorizationHeader;
    return PageMethod::result;
}

std::optional<std::string> passcode(const Value& message) {
    const Value* code = member(message, "PASSCODE");
    if (!code || code->is_null())
        return std::nullopt;
    if (code->is_string())
        return code->get<std::string>();
    return description(*code).text;
}

PageResult pageResult(const Value& message) {
    PageResult result;
    const Value mfaResult = valueOr(message, "SYSTEM_MFA_RESULT", "FAILURE");
    const Value errorMessage = valueOr(message, "SYSTEM_MFA_ERROR_MSG", "");
    result.verified = isText(mfaResult, "SUCCESS");
    result.errorMessage = description(errorMessage).text;
    result.response = {
        {"MFA_AUTH_RESULT", mfaResult},
        {"KEY", valueOr(message, "SYSTEM_MFA_KEY", "")},
        {"OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN",
         valueOr(message, "OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN", "")},
    };
    return result;
}

}  // namespace quorl
