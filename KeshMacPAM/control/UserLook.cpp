#include "AttemptGuard.h"
#include "ConfigParser.h"
#include "EnrollmentHandler.h"
#include "LocalRecord.h"
#include "OfflineDataHandler.h"
#include "Person.h"
#include "SystemPaths.h"
#include "UserRecords.h"
#include "Workers.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <filesystem>

namespace quorl::control {
namespace {

// A look must not make what is not there.
void lookAtGuard(const Person& person, Value& known) {
    std::error_code error;
    if (!std::filesystem::exists(systemPaths().guardDir, error))
        return;
    AttemptGuard guard(systemPaths().guardDir, person.uid, systemClock());
    if (const auto state = guard.see())
        known["lockedFor"] = state->lockedFor(guard.now()).count();
    else
        known["guardFault"] = state.error();
}

std::string limitText(const LimitNotice& notice, std::int64_t type) {
    if (type == limitAttempts)
        return fmt::format(", {} sign-ins left", notice.remaining);
    return type == limitDays ? fmt::format(", {} days left", notice.remaining) : "";
}

void lookAtRecord(const Person& person, Value& known) {
    const auto now = std::chrono::floor<std::chrono::seconds>(systemClock().now());
    const EnrollmentHandler handler(systemClock());
    const OfflineStanding standing = handler.standing(person.record(), now.time_since_epoch());
    known["standing"] = static_cast<int>(standing.result);
    known["factors"] = standing.factors;
    const auto users = OfflineDataHandler::storedUsers();
    const auto stored = users.find(person.record());
    if (stored == users.end())
        return;
    known["stored"] = 1;
    constexpr std::int64_t microseconds = 1'000'000;
    if (stored->second > 0)
        known["synced"] = fmt::format(
            "{:%F %H:%M}", fmt::localtime(static_cast<std::time_t>(stored->second / microseconds)));
    const auto data = OfflineDataHandler::getOfflineData(person.record());
    const auto parts = data ? RecordParts::of(*data) : std::nullopt;
    const auto record = parts ? OfflineRecord::read(*parts) : std::nullopt;
    if (!record)
        return;
    known["limit"] = limitText(record->limits.notice(now.time_since_epoch()), record->limits.type);
    const auto methods = offlineMethods(
        *record, configText(getProductConfig(getConfigFilePath()), "ACCESS_KEY"), systemClock());
    known["methods"] = methods ? methods->authenticators.size() : 0;
}

}  // namespace

int userWorker(const std::string& login) {
    Value known = {{"asked", 1}};
    if (const auto person = findPerson(login, OfflineDataHandler::getEnrolledUserList())) {
        known["record"] = person->record();
        known["local"] = person->domain == "LOCAL_ACCOUNT" ? 1 : 0;
        lookAtGuard(*person, known);
        lookAtRecord(*person, known);
    }
    say(known.dump(-1, ' ', false, Value::error_handler_t::replace));
    return exitDone;
}

}  // namespace quorl::control
