#include "EnrollmentSync.h"

#include "EnrollmentReply.h"
#include "Log.h"

namespace quorl {
namespace {

constexpr long statusOk = 200;

SyncEnd storeEnrollment(const Value& offlineData, const Clock& clock) {
    const auto enrollment = readEnrollment(offlineData);
    if (!enrollment)
        return {std::nullopt, enrollment.error() == EnrollmentFault::noPolicy};
    switch (OfflineDataHandler::replaceRecord(enrollment->user, enrollment->record, clock)) {
        case OfflineDataHandler::Replaced::done:
            return {enrollment->user};
        case OfflineDataHandler::Replaced::noKey:
            logLine("getEnrollmentData: DEK is not present / Error occured while generating");
            break;
        case OfflineDataHandler::Replaced::notWritten:
            logLine("getEnrollmentData: the record of user - {} could not be stored",
                    enrollment->user);
            break;
    }
    return {};
}

void prune(const EnrollmentAnswer& answer, const OfflineDataHandler::SyncTimes& storedBefore) {
    const auto enrolled = readEnrolledUsers(answer.body);
    if (!enrolled)
        return;
    if (answer.status == statusOk)
        OfflineDataHandler::removeDeletedUsers(storedBefore, *enrolled);
    else
        logLine("getEnrollmentData: ENROLLED_USERS_LIST of a reply of status {} is ignored",
                answer.status);
}

}  // namespace

SyncEnd takeAnswer(const EnrollmentAnswer& answer,
                   const OfflineDataHandler::SyncTimes& storedBefore, const Clock& clock) {
    SyncEnd end;
    if (member(answer.body, "ERROR_MSG")) {
        logLine("getEnrollmentData: Error occured while sending req. to server");
    } else if (const Value* offlineData = member(answer.body, "OFFLINE_MFA_DATA")) {
        end = storeEnrollment(*offlineData, clock);
    } else if (const Value* error = member(answer.body, "INTERNAL_ERROR")) {
        logLine("getEnrollmentData: Internal Error occured - {}", *error);
    } else {
        logLine("getEnrollmentData: Invalid response from server");
    }
    if (!end.atOnce)
        prune(answer, storedBefore);
    return end;
}

}  // namespace quorl
