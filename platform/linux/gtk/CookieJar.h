#pragma once

#include "GlibSupport.h"
#include "WebView.h"

#include <libsoup/soup.h>
#include <webkit2/webkit2.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quorl {

/// The cookies of the web view. Those with a date of expiry are kept in a file of mode 0600 and
/// come back with the next run; session cookies never touch the disk.
class CookieJar {
  public:
    CookieJar(WebKitCookieManager* manager, std::string file);
    CookieJar(const CookieJar&) = delete;
    CookieJar& operator=(const CookieJar&) = delete;

    /// Calls back when the kept cookies are in place.
    void restore(std::function<void()> done);
    void list(WebView::CookiesCompletion completion);
    void remove(const Cookie& cookie, std::function<void()> completion);
    /// Adds what a "Cookie" request header holds, for that URL, until the session's end.
    void addRequestCookies(const std::string& header, const std::string& url,
                           std::function<void()> done);

  private:
    void changed();
    void save();

    GObjectHandle<WebKitCookieManager> manager_;
    std::string file_;
    OneShotTimer saving_;
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    SignalConnections signals_;
};

}  // namespace quorl
