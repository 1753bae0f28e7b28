#pragma once

#include <tl/expected.hpp>

#include <string>

namespace quorl {

/// Makes the runtime folder (mode 0755) when it is missing, and checks one that is there: only root
/// or our own account may own it and write into it. The reason when it cannot be used.
tl::expected<void, std::string> prepareRuntimeFolder(const std::string& folder);

}  // namespace quorl
