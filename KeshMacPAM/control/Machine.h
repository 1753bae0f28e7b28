#pragma once

#include <tl/expected.hpp>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::control {

/// The machine whose second factor is looked after: where its files and programs lie. All but the
/// support folder lies below the system root (QUORL_SYSTEM_ROOT), which is empty on a real one.
class Machine {
  public:
    explicit Machine(std::string root) : root_(std::move(root)) {}

    /// A file of the system, below its root.
    std::string file(std::string_view path) const { return root_ + std::string(path); }
    bool has(std::string_view path) const;
    /// The content of a regular file of at most 4 MiB; nothing where there is none.
    std::string text(std::string_view path) const;
    /// Names of what lies in the folder, sorted.
    std::vector<std::string> names(std::string_view folder) const;

    /// The path of a system program; "" when it is not installed.
    std::string program(std::string_view name) const;

    /// What a system program writes to standard output, with the reason when it cannot be had.
    using Output = tl::expected<std::string, std::string>;
    Output run(std::string_view program, std::vector<std::string> arguments,
               std::chrono::milliseconds limit = std::chrono::seconds(6)) const;

    /// The same of a part of keshctl itself that may hang, crash, or needs other settings, in a
    /// process of its own (see Workers.h).
    static Output worker(std::vector<std::string> words, std::chrono::milliseconds limit,
                         const std::vector<std::string>& variables = {});

  private:
    std::string root_;
};

/// Without blanks and line ends at either end.
std::string trimmed(std::string_view text);
std::vector<std::string> linesOf(std::string_view text);
/// The words between blanks and tabs.
std::vector<std::string> wordsOf(std::string_view text);

}  // namespace quorl::control
