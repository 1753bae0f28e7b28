#pragma once

#include "Value.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// One user's enrollment as the server sent it, looked through before anything is stored.
struct Enrollment {
    std::string user;
    Value record;  ///< "POLICY_DATA" and "USER_DATA"
};

/// Why an enrollment is not stored; the log has it in words.
enum class EnrollmentFault { noUser, noPolicy, noUserData, unusable };

/// From the reply's "OFFLINE_MFA_DATA". Only what an offline verification can work with is taken,
/// since it replaces a record that may be good: every number there, one factor owed at least.
tl::expected<Enrollment, EnrollmentFault> readEnrollment(const Value& offlineData);

/// The reply's "ENROLLED_USERS_LIST"; nothing when there is none, and, with a log line, when it is
/// no list or holds anything but texts: everybody whom it does not name would be removed.
std::optional<std::vector<std::string>> readEnrolledUsers(const Value& reply);

}  // namespace quorl
