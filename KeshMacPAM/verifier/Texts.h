#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorl {

/// The helper's texts in the language of the configuration, else of its environment. `%NAME%` in a
/// text is replaced; what comes in its place may come from outside and is made harmless for a
/// terminal.
class Texts {
  public:
    using Replacements = std::vector<std::pair<std::string_view, std::string>>;

    explicit Texts(std::string localeId) : localeId_(std::move(localeId)) {}
    std::string get(std::string_view key, const Replacements& replacements = {}) const;

  private:
    std::string localeId_;
};

/// A text from outside for one line of a prompt or of the journal: no control characters, valid
/// UTF-8, not long.
std::string harmless(std::string_view text, std::size_t most = 80);

}  // namespace quorl
