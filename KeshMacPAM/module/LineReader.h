#pragma once

#include "Descriptor.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace quorl::pam {

/// Reads a file line by line without allocating. Lines of 4 KiB and more are passed over.
class LineReader {
  public:
    explicit LineReader(Descriptor file) : file_(std::move(file)) {}
    /// Opens the file for reading; one that cannot be opened has no lines.
    explicit LineReader(const char* path);

    /// The next line without its line feed, valid until the next call; false at the end.
    bool next(std::string_view& line);

  private:
    bool fill();

    Descriptor file_;
    std::array<char, 4096> buffer_{};
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool atEnd_ = false;
    bool overlong_ = false;
};

}  // namespace quorl::pam
