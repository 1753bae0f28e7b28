#pragma once

#include "Value.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace quorl::control {

/// A configuration that is made and tried in a folder of its own inside the support folder, and
/// takes the place of the one in use only when it works. Until then the machine knows nothing of
/// it; after an interruption the next attempt finds what the server has given out already.
class StagedConfiguration {
  public:
    using Done = tl::expected<void, std::string>;

    explicit StagedConfiguration(std::string supportFolder);

    /// Makes the folder anew and puts the settings into it, beside the value key, if one is given.
    Done prepare(const Value& settings, const std::optional<std::string>& valueKey);
    /// What an interrupted attempt obtained for that server; not the identity in use.
    bool holdsNewIdentityFor(const Value& settings) const;
    /// Registers, or looks whether the registration is accepted; gives the agent's identifier.
    tl::expected<std::string, std::string> tryOut() const;
    /// Puts value key and configuration in the place of those in use.
    Done takeEffect() const;
    void discard() const;

  private:
    std::string support_;
    std::string base_;
    std::string folder_;
};

/// Puts a file that root keeps in the support folder in its place, readable for the agent's
/// account.
StagedConfiguration::Done putIntoSupport(const std::string& path, const std::string& content);

}  // namespace quorl::control
