#pragma once

#include "Machine.h"

#include <optional>
#include <string>
#include <vector>

namespace quorl::control {

/// Who of the machine's own files gets in by a password of the machine.
struct LocalAccounts {
    bool rootHasPassword = false;
    std::vector<std::string> people;          ///< uid 1000 and above
    std::vector<std::string> administrators;  ///< of them: may become root by sudo
    bool onlyLocal = true;                    ///< no directory is asked for accounts
};
LocalAccounts localAccounts(const Machine& machine);

}  // namespace quorl::control
