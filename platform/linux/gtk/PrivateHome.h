#pragma once

#include "Handle.h"

#include <tl/expected.hpp>

#include <filesystem>
#include <memory>
#include <string>

namespace quorl {

/// A home of the application's own, empty at its start and gone with it: HOME and the XDG folders
/// name it while it lives. The web engine lends parts of them to its pages' process, writable, and
/// ends the application when one that it inherited cannot be read.
class PrivateHome {
  public:
    /// Makes it in the folder (which must be ours), and clears away what killed applications left
    /// there. The reason when it cannot be made.
    static tl::expected<std::unique_ptr<PrivateHome>, std::string> make(
        const std::filesystem::path& folder);
    ~PrivateHome();
    PrivateHome(const PrivateHome&) = delete;
    PrivateHome& operator=(const PrivateHome&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    PrivateHome(std::filesystem::path path, FileDescriptor lock)
        : path_(std::move(path)), lock_(std::move(lock)) {}

    std::filesystem::path path_;
    FileDescriptor lock_;
};

}  // namespace quorl
