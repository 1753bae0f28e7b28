#pragma once

#include "Command.h"

#include <tl/expected.hpp>

#include <map>
#include <optional>
#include <set>

namespace quorl::control {

/// Which options a command knows.
struct OptionNames {
    std::set<std::string> valued = {};  ///< "--host", followed by its value
    std::set<std::string> flags = {};   ///< "--renew"
};

/// A command's words, sorted. An option that is given twice keeps all its values.
class Arguments {
  public:
    /// The reason when a word begins with two hyphens and is no option, or lacks its value.
    static tl::expected<Arguments, std::string> sort(const Words& words, const OptionNames& names);

    bool has(const std::string& flag) const { return options_.contains(flag); }
    std::optional<std::string> value(const std::string& option) const;
    Words values(const std::string& option) const;
    const Words& plain() const { return plain_; }

  private:
    std::map<std::string, Words> options_;
    Words plain_;
};

}  // namespace quorl::control
