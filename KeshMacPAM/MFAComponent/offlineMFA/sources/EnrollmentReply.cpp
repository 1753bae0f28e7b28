#include "EnrollmentReply.h"

#include "Log.h"
#include "OfflineRecord.h"
#include "StoreJSON.h"

#include <algorithm>

namespace quorl {
namespace {

// A member of another kind counts as absent, so that no reply of the wrong form opens a limit.
const Value* dictionaryUnder(const Value& dictionary, std::string_view key) {
    const Value* found = member(dictionary, key);
    return found && found->is_object() ? found : nullptr;
}

}  // namespace

tl::expected<Enrollment, EnrollmentFault> readEnrollment(const Value& offlineData) {
    const auto user = stringValue(offlineData, "USER_NAME");
    if (!user || user->empty()) {
        logLine("getEnrollmentData: User Name is not present in response");
        return tl::unexpected(EnrollmentFault::noUser);
    }
    logLine("getEnrollmentData: Sync user offline data - {}", *user);
    const Value* policy = dictionaryUnder(offlineData, "POLICY_DATA");
    if (!policy) {
        logLine("getEnrollmentData: policy Data is not present in response of user - {}", *user);
        return tl::unexpected(EnrollmentFault::noPolicy);
    }
    const Value* userData = dictionaryUnder(offlineData, "USER_DATA");
    if (!userData) {
        logLine("getEnrollmentData: User Auth Data is not present in response of user - {}", *user);
        return tl::unexpected(EnrollmentFault::noUserData);
    }
    Value record = {{"POLICY_DATA", *policy}, {"USER_DATA", *userData}};
    const auto usable = OfflineRecord::read({*policy, *userData});
    if (!usable || usable->noOfFactors < 1 || !fitsStore(record)) {
        logLine(
            "getEnrollmentData: a record of user - {} that nobody could be verified by, or that "
            "is too large, is not stored",
            *user);
        return tl::unexpected(EnrollmentFault::unusable);
    }
    return Enrollment{*user, std::move(record)};
}

std::optional<std::vector<std::string>> readEnrolledUsers(const Value& reply) {
    const Value* list = member(reply, "ENROLLED_USERS_LIST");
    if (!list)
        return std::nullopt;
    if (!list->is_array() || !std::ranges::all_of(*list, &Value::is_string)) {
        logLine("getEnrollmentData: ENROLLED_USERS_LIST is no list of texts, all users are kept");
        return std::nullopt;
    }
    return list->get<std::vector<std::string>>();
}

}  // namespace quorl
