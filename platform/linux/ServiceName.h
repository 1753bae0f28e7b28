#pragma once

#include "HeldName.h"

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
    /// A name that the program before this one left is taken up as it is.
    static tl::expected<std::unique_ptr<ServiceName>, std::string> claim(
        const std::string& runtimeDir, const std::string& name);
    ~ServiceName();
    ServiceName(const ServiceName&) = delete;
    ServiceName& operator=(const ServiceName&) = delete;

    /// The listening socket; it does not block.
    int listener() const { return held_.listener.get(); }
    /// What holds the name, which is not given back then: for the program that follows.
    HeldName handOver() { return std::move(held_); }

  private:
    ServiceName(HeldName held, std::string path);

    HeldName held_;
    std::string path_;
};

}  // namespace quorl
