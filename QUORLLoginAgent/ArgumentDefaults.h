#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// The command line read as pairs of `-key value`, as user defaults do: a word after a key is its
/// value whatever it looks like, the last of equal keys wins, other words are passed over.
class ArgumentDefaults {
  public:
    ArgumentDefaults(int argc, const char* const* argv);

    /// The value of the key, or nothing.
    std::optional<std::string> stringForKey(std::string_view key) const;

  private:
    std::map<std::string, std::string, std::less<>> values_;
};

}  // namespace quorl
