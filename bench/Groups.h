#pragma once

#include "Figures.h"

namespace quorl::bench {

/// One function a group, in the file named after it.
void benchHttps(Figures& figures);
void benchLaunch(Figures& figures);
void benchOffline(Figures& figures);
void benchStore(Figures& figures);

}  // namespace quorl::bench
