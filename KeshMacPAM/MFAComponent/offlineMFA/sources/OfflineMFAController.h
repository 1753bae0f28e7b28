#pragma once

#include "Clock.h"
#include "HtmlUtils.h"
#include "Value.h"
#include "authenticators/TOTPAuthenticator.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorl {

struct OfflineRecord;

/// One offline verification of one user: which factors are owed, which page shows, which code is
/// right. Main thread only. Made as a shared object, since an answer of the page keeps it alive.
/// The clock outlives it. Closing the window is the end of the flow and may call back into whoever
/// owns the controller: it is the last thing an operation does.
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
    /// 0, or 2 when offline MFA is off or the user has no usable enrollment.
    std::int64_t getOfflineErrorCode() const { return offlineErrorCode_; }

  private:
    /// The view that the next page load shows.
    enum class Tab { none, choose, verify };

    static constexpr std::array<std::int64_t, 4> TOTP_AUTH_IDS = {3, 14, 16, 18};
    static bool isTOTP(std::int64_t authId);

    // The flow (OfflineMFAController.cpp)
    bool isLogoExists(const std::optional<std::string>& name);
    bool getOfflineData();
    void buildAuthenticators(const OfflineRecord& record);
    bool takeMandatoryAuths(const Value& mandatoryAuths);
    void performOfflineAuth();
    void loadPage();
    const TOTPAuthenticator* currentAuthenticator() const;

    // The buttons (OfflineMFAActions.cpp)
    void showError(const std::string& text);
    void checkFactors();
    void chooseAuthenticator(const std::optional<std::string>& value);

    // The page (OfflineMFARendering.cpp)
    std::string localized(std::string_view key) const;
    /// Gives the script that puts the focus.
    std::string showVerifyView(std::string timer);
    /// Whether few of the limit are left.
    bool showLimit();
    void chooseVerify();
    void loadOfflineMFAResources();

    bool isMFAVerified_ = false;
    std::int64_t offlineErrorCode_ = 0;
    const Value& configDetails_;
    std::int64_t validUserAttempts_ = 0;
    std::int64_t lastOnlineMfaTime_ = 0;
    std::string userName_;
    std::string domainName_;
    std::string offlineUserName_;  ///< user@domain, the key of the stored record
    std::map<std::int64_t, TOTPAuthenticator> authList_;
    Tab currentTab_ = Tab::none;
    std::int64_t currentauthId_ = 0;
    std::string logoPath_;
    std::string accessKey_;
    bool isOfflineMFA_;
    bool mIsLogoExists_;
    std::int64_t sessionTime_ = 2;  ///< minutes that a page stays open
    std::int64_t noOfFactors_ = 0;  ///< verifications still owed
    std::int64_t limitType_ = 0;
    std::int64_t limit_ = 0;
    std::vector<std::int64_t> mandatoryAuths_;  ///< still to ask, in order
    std::vector<std::int64_t> optionalAuths_;   ///< still to ask or to choose from
    std::shared_ptr<HtmlUtils> html_;
    const Clock& clock_;
};

}  // namespace quorl
