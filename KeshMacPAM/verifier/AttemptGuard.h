#pragma once

#include "Clock.h"
#include "GuardState.h"

#include <sys/types.h>
#include <tl/expected.hpp>

#include <functional>
#include <string>

namespace quorl {

/// One user's guard: a file named after the uid, since one person has many spellings of a name, but
/// one uid. Every change is on the disk when its call returns, and is made under a lock that is
/// never held across a prompt. The folder (mode 0700) is made when it is missing.
class AttemptGuard {
  public:
    AttemptGuard(std::string folder, uid_t user, const Clock& clock);

    /// Changes what is remembered, and gives what it is then; the reason when it cannot be
    /// remembered. A file that is missing is a user without history; a damaged one locks for a
    /// minute, and is written anew.
    using Change = std::function<void(GuardState& state, GuardState::Time now)>;
    tl::expected<GuardState, std::string> change(const Change& change);

    /// What is remembered, with the user seen now.
    tl::expected<GuardState, std::string> see();

    GuardState::Time now() const;

  private:
    std::string folder_;
    uid_t user_;
    const Clock& clock_;
};

}  // namespace quorl
