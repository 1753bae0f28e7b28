#pragma once

#include "Port.h"
#include "ServicePort.h"

#include <string>

namespace quorl {

/// Ports as local sockets; bootstrap names as listening sockets in a folder.
class LinuxPortSystem final : public PortSystem {
  public:
    explicit LinuxPortSystem(std::string runtimeDir, ServiceLimits limits = {});

    std::unique_ptr<Port> makePort() override;
    std::unique_ptr<Port> servicePortWithName(const std::string& name) override;
    std::unique_ptr<RunLoop> makeRunLoop() override;

  private:
    std::string runtimeDir_;
    ServiceLimits limits_;
};

}  // namespace quorl
