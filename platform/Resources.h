#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// The application's resource bundle: files by name and type, and string tables by language
/// (`<language>.lproj/Localizable.strings`, XML property lists).
class Resources {
  public:
    explicit Resources(std::string folder);

    /// Full path of `name.type`, or nothing when no such file exists. A name may hold a sub-path.
    std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const;

    /// True when the folder of that language's string table exists.
    bool hasLocalization(std::string_view language) const;

    /// The text under the key in one language's table; nothing when the table or the key is
    /// absent or unreadable.
    std::optional<std::string> localizedString(std::string_view key,
                                               std::string_view language) const;

  private:
    std::string folder_;
};

/// The bundle of this process, in systemPaths().resourcesDir.
const Resources& mainBundle();

}  // namespace quorl
