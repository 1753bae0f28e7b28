#pragma once

#include "Handle.h"

#include <tl/expected.hpp>

#include <memory>
#include <string>

namespace quorl {

/// A bootstrap name that is ours: the listening socket of that name in the runtime folder, and the
/// lock file beside it that keeps a second agent away. Gives the name back when it is destroyed.
class ServiceName {
  public:
    /// Claims the name, replacing the socket that a dead agent left; the reason when another live
    /// agent holds it or the folder does not allow it. Makes the folder (mode 0755) when missing.
    static tl::expected<std::unique_ptr<ServiceName>, std::string> claim(
        const std::string& runtimeDir, const std::string& name);
    ~ServiceName();
    ServiceName(const ServiceName&) = delete;
    ServiceName& operator=(const ServiceName&) = delete;

    /// The listening socket; it does not block.
    int listener() const { return listener_.get(); }

  private:
    ServiceName(FileDescriptor lock, FileDescriptor listener, std::string path);

    FileDescriptor lock_;
    FileDescriptor listener_;
    std::string path_;
};

}  // namespace quorl
