#include "Arguments.h"

namespace quorl::control {

tl::expected<Arguments, std::string> Arguments::sort(const Words& words, const OptionNames& names) {
    Arguments sorted;
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (!word.starts_with("--")) {
            sorted.plain_.push_back(word);
        } else if (names.valued.contains(name) && equals != word.npos) {
            sorted.options_[name].push_back(word.substr(equals + 1));
        } else if (names.valued.contains(word)) {
            if (at + 1 == words.size())
                return tl::unexpected(word + " lacks its value");
            sorted.options_[word].push_back(words[++at]);
        } else if (names.flags.contains(word)) {
            sorted.options_[word];
        } else {
            return tl::unexpected(shown(name) + " is no option");
        }
    }
    return sorted;
}

std::optional<std::string> Arguments::value(const std::string& option) const {
    const auto found = options_.find(option);
    return found == options_.end() || found->second.empty() ? std::nullopt
                                                            : std::optional(found->second.back());
}

Words Arguments::values(const std::string& option) const {
    const auto found = options_.find(option);
    return found == options_.end() ? Words() : found->second;
}

}  // namespace quorl::control
