#pragma once

#include "HeldName.h"

#include <string>
#include <vector>

namespace quorl {

/// What the process was started with, kept so that it can be started with that again in its own
/// place: same process number, same supervisor. Make it before the environment is changed.
class NewStart {
  public:
    explicit NewStart(char** arguments);
    /// Returns only when it fails. Nothing may be left open or running that the new start would
    /// trip over, but the name that it takes up.
    void begin(const HeldName& name) const;

  private:
    char** arguments_;
    std::vector<std::string> environment_;
};

/// Whether this process may start anew: a few times only, whatever makes it want to, so that it
/// never does nothing else.
bool mayStartAnew();

}  // namespace quorl
