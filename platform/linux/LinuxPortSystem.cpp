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
    return ServicePort::make(std::move(*claimed), limits_);
}

std::unique_ptr<RunLoop> LinuxPortSystem::makeRunLoop() {
    return std::make_unique<PollRunLoop>();
}

}  // namespace quorl
