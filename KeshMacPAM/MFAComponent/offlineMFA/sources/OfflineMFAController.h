#pragma once

#include "Clock.h"
#include "HtmlUtils.h"
#include "Value.h"
#include "authenticators/TOTPAuthenticator.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// One offline verification of one user: which factors are owed, which page shows, which code is
/// right. Main thread only. Made as a shared object, since an answer of the page keeps it alive.
class OfflineMFAController : public std::enable_shared_from_this<OfflineMFAController> {
  public:
    OfflineMFAController(std::string userName, std::string domainName,
                         std::shared_ptr<HtmlUtils> html, const Clock& clock = systemClock());

    /// Starts the flow: loads the page, or closes the window when the user cannot be verified.
    void doAuthenticate();
    /// The page has loaded: fills it.
    void didFinishNavigation();
    /// A code was submitted.
    void onButtonOK(const std::optional<std::string>& code);
    /// A method was picked.
    void onButtonChoose();

    bool getIsMFAVerified() const { return isMFAVerified_; }
    std::int64_t getOfflineErrorCode() const { return offlineErrorCode_; }
};

}  // namespace quorl
