#pragma once

#include "Arguments.h"

#include <tl/expected.hpp>

#include <map>
#include <optional>
#include <string>

namespace quorl::control {

/// What the words ask for, read and checked.
struct SetupRequest {
    std::map<std::string, std::string> settings;
    std::optional<std::string> installationKey;
    std::optional<std::string> valueKey;
    bool renew = false;

    SetupRequest() = default;
    SetupRequest(const SetupRequest&) = delete;
    SetupRequest& operator=(const SetupRequest&) = delete;
    /// Wipes the keys.
    ~SetupRequest();

    /// Takes over what setup's arguments say; the reason when one of them cannot be used.
    tl::expected<void, std::string> read(const Arguments& arguments);
};

}  // namespace quorl::control
