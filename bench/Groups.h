#pragma once

#include "Figures.h"

namespace quorl::bench {

/// One function a group, in the file named after it.
void benchArchive(Figures& figures);
void benchHttps(Figures& figures);
void benchLaunch(Figures& figures);
void benchMessage(Figures& figures);
void benchOffline(Figures& figures);
void benchPam(Figures& figures);
void benchStore(Figures& figures);
void benchTotp(Figures& figures);

}  // namespace quorl::bench
