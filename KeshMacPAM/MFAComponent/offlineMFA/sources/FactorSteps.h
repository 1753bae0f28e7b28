#pragma once

#include <cstdint>
#include <vector>

namespace quorl {

/// Which method a user verifies next, and how many verifications are still owed. Mandatory methods
/// come first, in their order, each once; then the user chooses among the others, unless exactly as
/// many are left as are owed. Whoever asks the person, a page or a prompt, obeys it.
class FactorSteps {
  public:
    /// The ids of the methods that can be verified.
    struct Methods {
        std::vector<std::int64_t> mandatory;  ///< to be asked first, in this order
        std::vector<std::int64_t> optional;   ///< to be chosen from
    };
    /// What follows: a method to verify, taken from the mandatory or the optional ones, or a
    /// choice.
    enum class Next { mandatory, optional, choice };

    FactorSteps() = default;
    FactorSteps(std::int64_t factors, Methods methods);

    /// Settles what follows, and takes its method; a choice takes none.
    Next next();
    /// The user chose this method: it is the one to verify, and is not offered again.
    void choose(std::int64_t authId);
    /// The current method's code was right.
    void countVerified();

    /// Whether nothing is owed any more. A number below 0 never gets there.
    bool done() const { return owed_ == 0; }
    /// The method to verify; 0 for none.
    std::int64_t current() const { return current_; }
    const std::vector<std::int64_t>& choices() const { return methods_.optional; }

  private:
    std::int64_t owed_ = 0;
    std::int64_t current_ = 0;
    Methods methods_;
};

}  // namespace quorl
