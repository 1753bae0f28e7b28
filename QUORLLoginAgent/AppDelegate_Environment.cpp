#include "AppDelegate.h"

namespace quorl {

void AppDelegate::setEnvironmentalDetails() {
    discoverEnvironment(machine_);
}

}  // namespace quorl
