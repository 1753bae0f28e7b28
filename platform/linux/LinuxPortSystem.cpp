#include "LinuxPortSystem.h"

#include "Log.h"
#include "PollRunLoop.h"
#include "SocketPorts.h"

namespace quorl {

LinuxPortSystem::LinuxPortSystem(std::string runtimeDir, ServiceLimits limits)
    : runtimeDir_(std::move(runtimeDir)), limits_(limits) {}

std::unique_ptr<Port> LinuxPortSystem::makePort() {
    return SocketPort::make();
}

std::unique_ptr<Port> LinuxPortSystem::servicePortWithName(const std::string& name) {
    auto claimed = ServiceName::claim(runtimeDir_, name);
    if (!claimed) {
        logLine("LinuxPortSystem : the name {} cannot be had: {}", name, claimed.error());
        return nullptr;
    }
    const std::shared_ptr<ServiceName> service = std::move(*claimed);
    const std::lock_guard lock(mutex_);
    service_ = service;
    return ServicePort::make(service, limits_);
}

std::unique_ptr<RunLoop> LinuxPortSystem::makeRunLoop() {
    return std::make_unique<PollRunLoop>();
}

void LinuxPortSystem::keepServiceName() {
    const std::lock_guard lock(mutex_);
    kept_ = service_.lock();
}

HeldName LinuxPortSystem::handOverService() {
    return kept_ ? kept_->handOver() : HeldName();
}

}  // namespace quorl
