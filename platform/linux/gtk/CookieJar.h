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

using SoupCookieHandle = Handle<SoupCookie, soup_cookie_free>;

/// The cookies of the web view. Those with a date of expiry are kept in a file of mode 0600 and
/// come back with the next run; session cookies never touch the disk.
class CookieJar {
  public:
    CookieJar(WebKitCookieManager* manager, std::string file);
    CookieJar(const CookieJar&) = delete;
    CookieJar& operator=(const CookieJar&) = delete;

    /// Calls back when the kept cookies are in place.
    void restore(std::function<void()> done);
    /// Writes the lasting ones to the file and calls back, where something is given.
    void save(std::function<void()> done);
    /// Calls back when no list() or remove() is at work any more.
    void whenIdle(std::function<void()> done);
    void list(WebView::CookiesCompletion completion);
    void remove(const Cookie& cookie, std::function<void()> completion);
    /// Adds what a "Cookie" request header holds, for that URL alone, until it has been sent.
    void addRequestCookies(const std::string& header, const std::string& url,
                           std::function<void()> done);
    bool holdsRequestCookies() const { return !requestCookies_.empty(); }
    /// Takes those out again, where the server has not given them another value meanwhile.
    void dropRequestCookies(std::function<void()> done);

  private:
    void changed();
    void ended();

    GObjectHandle<WebKitCookieManager> manager_;
    std::string file_;
    std::vector<SoupCookieHandle> requestCookies_;
    bool watched_ = false;
    int atWork_ = 0;
    std::vector<std::function<void()>> waiting_;
    OneShotTimer saving_;
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    SignalConnections signals_;
};

}  // namespace quorl
