#pragma once

#include "Application.h"
#include "Resources.h"

#include <tl/expected.hpp>

#include <memory>
#include <string>

namespace quorl {

/// The application on the display that the environment names. Failure (no display, no interface
/// description) gives the reason as one line.
tl::expected<std::unique_ptr<Application>, std::string> makeGtkApplication(
    const Resources& resources);

}  // namespace quorl
