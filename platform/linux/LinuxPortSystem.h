#pragma once

#include "Port.h"
#include "ServicePort.h"

#include <memory>
#include <mutex>
#include <string>

namespace quorl {

/// Ports as local sockets; bootstrap names as listening sockets in a folder.
class LinuxPortSystem final : public PortSystem {
  public:
    explicit LinuxPortSystem(std::string runtimeDir, ServiceLimits limits = {});

    std::unique_ptr<Port> makePort() override;
    std::unique_ptr<Port> servicePortWithName(const std::string& name) override;
    std::unique_ptr<RunLoop> makeRunLoop() override;
    void keepServiceName() override;
    /// What holds the name that was kept, which goes on listening then; empty when none was. Once
    /// its port is not used any more.
    HeldName handOverService();

  private:
    std::string runtimeDir_;
    ServiceLimits limits_;
    std::mutex mutex_;
    std::weak_ptr<ServiceName> service_;
    std::shared_ptr<ServiceName> kept_;
};

}  // namespace quorl
