#include "OfflineRecord.h"

#include "Log.h"

#include <cmath>

namespace quorl {
namespace {

std::int64_t number(const Value& data, std::string_view key) {
    const Value* value = member(data, key);
    if (value && !value->is_number())
        logLine("OfflineMFAController::getOfflineData : {} is no number", std::string(key));
    return integerValue(data, key);
}

Value structure(const Value& data, std::string_view key, Value::value_t kind) {
    const Value* value = member(data, key);
    if (value && value->type() == kind)
        return *value;
    if (value && !value->is_null())
        logLine("OfflineMFAController::getOfflineData : {} is no {}", std::string(key),
                kind == Value::value_t::array ? "list" : "dictionary");
    return Value(kind);
}

Value mandatoryList(const Value& policyData) {
    const Value* value = member(policyData, "MANDATORY_AUTHS");
    return value && !value->is_null() ? *value : Value::array();
}

}  // namespace

OfflineRecord::OfflineRecord(const Value& policyData, const Value& userData)
    : noOfFactors(number(policyData, "MFA_NO_OF_FACTORS")),
      limitType(number(policyData, "OFFLINE_MFA_LIMIT_TYPE")),
      limit(number(policyData, "OFFLINE_MFA_LIMIT_VALUE")),
      validUserAttempts(number(userData, "SUCCESSFUL_OFFLINE_MFA_ATTEMPTS")),
      lastOnlineMfaTime(number(userData, "LAST_ONLINE_MFA_TIME")),
      enabledAuths(structure(policyData, "ENABLED_AUTHS", Value::value_t::array)),
      mandatoryAuths(mandatoryList(policyData)),
      authEnrollmentData(structure(userData, "AUTH_ENROLLMENT", Value::value_t::object)) {}

std::optional<std::int64_t> authenticatorId(const Value& entry) {
    if (entry.is_number_integer())
        return toInteger(entry);
    if (entry.is_number_float() && std::trunc(entry.get<double>()) == entry.get<double>())
        return toInteger(entry);
    return std::nullopt;
}

std::string enrollmentKey(const Value& entry) {
    if (const auto id = authenticatorId(entry))
        return std::to_string(*id);
    return entry.is_string() ? entry.get<std::string>() : description(entry).text;
}

}  // namespace quorl
