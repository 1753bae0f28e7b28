#pragma once

#include "HtmlUtils.h"
#include "OfflineLimits.h"
#include "OfflinePageScripts.h"
#include "Value.h"
#include "authenticators/TOTPAuthenticator.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorl {

/// What one load of the offline page shows. The authenticator outlives the filling.
struct OfflineView {
    enum class Tab { none, choose, verify };
    struct Choice {
        std::int64_t authId;
        std::string name;
    };

    Tab tab = Tab::none;
    std::string userName;
    std::string domainName;
    std::optional<std::string> logoPath;
    // The verify view's.
    const TOTPAuthenticator* authenticator = nullptr;
    bool takesCodes = false;  ///< the method is one of one-time codes
    std::optional<LimitNotice> limit;
    // The choose view's.
    std::vector<Choice> choices;
};

/// Writes into the loaded page, in the configured language. Main thread only; the configuration
/// outlives it.
class OfflineMFAPage {
  public:
    OfflineMFAPage(std::shared_ptr<HtmlUtils> html, const Value& config);

    void load();
    void fill(const OfflineView& view);
    /// Clears the code field and shows the text beside it.
    void showError(const std::string& text);
    /// The text of a code that is not taken.
    std::string wrongCodeText() const;

  private:
    std::string localized(std::string_view key) const;
    /// Gives the script that puts the focus.
    std::string fillVerifyView(const OfflineView& view, std::string timer);
    void fillChooseView(const std::vector<OfflineView::Choice>& choices);
    void fillStaticTexts();

    std::shared_ptr<HtmlUtils> html_;
    const Value& config_;
};

}  // namespace quorl
