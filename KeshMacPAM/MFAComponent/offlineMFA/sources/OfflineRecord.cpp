#include "OfflineRecord.h"

#include "Log.h"
#include "RecordNumber.h"

#include <cmath>

namespace quorl {
namespace {

// Takes the number into its place.
bool take(std::int64_t& place, const Value& data, std::string_view key) {
    const auto number = recordNumber(data, key);
    if (!number)
        logLine("OfflineRecord : {} is missing, negative or no number, the record is not used",
                std::string(key));
    place = number.value_or(0);
    return number.has_value();
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

std::optional<RecordParts> RecordParts::of(const Value& record) {
    const Value* policyData = member(record, "POLICY_DATA");
    const Value* userData = member(record, "USER_DATA");
    if (!policyData || !policyData->is_object() || !userData || !userData->is_object())
        return std::nullopt;
    return RecordParts{*policyData, *userData};
}

std::optional<OfflineRecord> OfflineRecord::read(const RecordParts& parts) {
    const auto& [policyData, userData] = parts;
    OfflineRecord record;
    if (!take(record.noOfFactors, policyData, "MFA_NO_OF_FACTORS") ||
        !take(record.limits.type, policyData, "OFFLINE_MFA_LIMIT_TYPE") ||
        !take(record.limits.value, policyData, "OFFLINE_MFA_LIMIT_VALUE") ||
        !take(record.limits.attempts, userData, "SUCCESSFUL_OFFLINE_MFA_ATTEMPTS") ||
        !take(record.limits.lastOnlineTime, userData, "LAST_ONLINE_MFA_TIME"))
        return std::nullopt;
    record.enabledAuths = structure(policyData, "ENABLED_AUTHS", Value::value_t::array);
    record.mandatoryAuths = mandatoryList(policyData);
    record.authEnrollmentData = structure(userData, "AUTH_ENROLLMENT", Value::value_t::object);
    return record;
}

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
