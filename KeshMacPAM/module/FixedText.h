#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace quorl::pam {

/// A text of at most `Limit` bytes that lives where it stands and ends in a NUL: the module neither
/// allocates nor throws.
template <std::size_t Limit>
class FixedText {
  public:
    FixedText() = default;
    explicit FixedText(std::string_view text) { assign(text); }

    /// Takes the text over whole; false, and nothing changed, when it is too long.
    bool assign(std::string_view text) {
        if (text.size() > Limit)
            return false;
        size_ = 0;
        return append(text);
    }
    bool append(std::string_view text) {
        if (text.size() > Limit - size_)
            return false;
        for (const char c : text)
            bytes_[size_++] = c;
        bytes_[size_] = '\0';
        return true;
    }

    std::string_view view() const { return {bytes_.data(), size_}; }
    const char* c_str() const { return bytes_.data(); }
    bool empty() const { return size_ == 0; }

  private:
    std::array<char, Limit + 1> bytes_{};
    std::size_t size_ = 0;
};

}  // namespace quorl::pam
