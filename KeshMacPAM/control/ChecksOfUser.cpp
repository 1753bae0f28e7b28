// The doctor's checks of one person's record.
#include "Doctor.h"
#include "EnrollmentHandler.h"

#include <fmt/format.h>

namespace quorl::control {
namespace {

std::optional<Finding> unaskable(const Examination& examination) {
    if (!examination.user)
        return skipped("give --user");
    if (!examination.asRoot)
        return needsRoot();
    return std::nullopt;
}

constexpr const char* signInOnce = "sign in once at the login screen while the server answers";

}  // namespace

Finding checkSpelling(const Examination& examination) {
    if (const auto end = unaskable(examination))
        return *end;
    const Value& known = examination.personal.get();
    if (known.empty())
        return broken("the name service does not answer in time", "mend it (sssd, nslcd)");
    const auto record = stringValue(known, "record");
    if (!record)
        return broken("no account of that name", "spell it as at the login");
    if (integerValue(known, "local") == 1)
        return note("an account of this machine, which is not asked",
                    "local = require in /etc/security/pam_kesh.conf");
    if (record->ends_with("@"))
        return broken(*record + ": the domain cannot be told",
                      "join the domain, or sign in as NAME@DOMAIN");
    if (integerValue(known, "stored") != 1)
        return note(*record + ": no record of that name is stored", signInOnce);
    return ok(*record);
}

Finding checkRecord(const Examination& examination) {
    if (const auto end = unaskable(examination))
        return *end;
    const Value& known = examination.personal.get();
    if (!member(known, "record"))
        return skipped("needs 19");
    if (const auto locked = integerValue(known, "lockedFor"); locked > 0)
        return broken(fmt::format("wrong codes have locked it for {} s more", locked),
                      "keshctl unlock " + *examination.user);
    if (const auto fault = stringValue(known, "guardFault"))
        return broken("the guard cannot be read: " + *fault, "make room, or mend the folder");
    switch (static_cast<PreAuthResult>(integerValue(known, "standing"))) {
        case PreAuthResult::allowed:
            break;
        case PreAuthResult::noOfflineData:
            return note("no usable record: not without the server, and not in text", signInOnce);
        case PreAuthResult::limitReached:
            return broken("its limit of sign-ins without the server is reached", signInOnce);
        case PreAuthResult::offlineMFADisabled:
            return note("OFFLINE_MFA is not \"true\": not without the server",
                        "keshctl setup --set OFFLINE_MFA=true");
    }
    if (integerValue(known, "methods") < 1)
        return broken("it has no method that can be asked for without the server",
                      "enrol a one-time code on the server, then " + std::string(signInOnce));
    return ok(fmt::format("{} of {} methods asked{}, synced {}", integerValue(known, "factors"),
                          integerValue(known, "methods"), stringValue(known, "limit").value_or(""),
                          stringValue(known, "synced").value_or("never")));
}

}  // namespace quorl::control
