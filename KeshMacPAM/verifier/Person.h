#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// Who signs in, whichever way the name was spelled.
struct Person {
    uid_t uid = 0;
    std::string name;    ///< without a domain
    std::string domain;  ///< as the server knows it

    /// The key of the person's stored record.
    std::string record() const { return name + "@" + domain; }
};

/// The parts of a login name: `EXAMPLE\dora`, `dora@example.com` or `dora`.
struct LoginName {
    std::string name;
    std::string domain;  ///< empty when none was given
};
LoginName splitLoginName(const std::string& login);

/// The stored record that is meant by the login name, if exactly one is: letter case does not
/// matter, and a domain may be given by its first label.
std::optional<LoginName> matchingRecord(const LoginName& login,
                                        const std::vector<std::string>& records);

/// Asks the name service for the person, and the users of the store for how the server spells the
/// name; nothing when the name service knows nobody of that name. Blocks.
std::optional<Person> findPerson(const std::string& login, const std::vector<std::string>& records);

}  // namespace quorl
