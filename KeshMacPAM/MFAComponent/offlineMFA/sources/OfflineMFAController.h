#pragma once

#include "Clock.h"
#include "FactorSteps.h"
#include "HtmlUtils.h"
#include "OfflineLimits.h"
#include "OfflineMFAPage.h"
#include "OfflineMethods.h"
#include "Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace quorl {

/// One offline verification of one user: which factors are owed, which page shows, which code is
/// right. Main thread only. Made as a shared object, since an answer of the page keeps it alive.
/// The clock outlives it. Closing the window is the end of the flow and may call back into whoever
/// owns the controller: it is the last thing an operation does.
class OfflineMFAController : public std::enable_shared_from_this<OfflineMFAController> {
  public:
    OfflineMFAController(std::string userName, std::string domainName,
                         std::shared_ptr<HtmlUtils> html, const Clock& clock);

    /// Starts the flow: loads the page, or closes the window when the user cannot be verified.
    void doAuthenticate();
    /// The page has loaded: fills it.
    void didFinishNavigation();
    /// A code was submitted.
    void onButtonOK(const std::optional<std::string>& code);
    /// A method was picked.
    void onButtonChoose();

    bool getIsMFAVerified() const { return isMFAVerified_; }
    /// 0, or 2 when offline MFA is off or the user has no usable enrollment.
    std::int64_t getOfflineErrorCode() const { return offlineErrorCode_; }

  private:
    // The flow (OfflineMFAController.cpp)
    bool isLogoExists(const std::optional<std::string>& name);
    bool getOfflineData();
    void performOfflineAuth();

    // The buttons (OfflineMFAActions.cpp)
    void checkFactors();
    void chooseAuthenticator(const std::optional<std::string>& value);

    bool isMFAVerified_ = false;
    std::int64_t offlineErrorCode_ = 0;
    const Value& configDetails_;
    std::string userName_;
    std::string domainName_;
    std::string offlineUserName_;  ///< user@domain, the key of the stored record
    OfflineMethods methods_;
    OfflineView::Tab currentTab_ = OfflineView::Tab::none;
    std::string logoPath_;
    std::string accessKey_;
    bool isOfflineMFA_;
    bool mIsLogoExists_;
    FactorSteps steps_;
    OfflineLimits limits_;
    std::shared_ptr<HtmlUtils> html_;
    OfflineMFAPage page_;
    const Clock& clock_;
};

}  // namespace quorl
