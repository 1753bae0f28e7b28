#pragma once

#include "GlibSupport.h"

#include <webkit2/webkit2.h>

#include <string>

namespace quorl {

enum class CertificatePolicy { verify, acceptAny };

/// One view of the engine with the context that is its alone. Making it starts the engine's
/// processes. Nothing that pages store outlives it.
class WebKitEngine {
  public:
    /// Pages post messages on the channel of that name.
    WebKitEngine(CertificatePolicy certificates, const std::string& channel);
    ~WebKitEngine();
    WebKitEngine(const WebKitEngine&) = delete;
    WebKitEngine& operator=(const WebKitEngine&) = delete;

    WebKitWebView* view() const { return view_.get(); }
    WebKitUserContentManager* content() const { return content_.get(); }
    WebKitCookieManager* cookies() const;
    /// Seals page headers for the web process; empty when its extension is not installed, and
    /// headers cannot be put in.
    const std::string& headersSecret() const { return headersSecret_; }

  private:
    void installExtension();

    std::string channel_;
    std::string headersSecret_;
    GObjectHandle<WebKitWebContext> context_;
    GObjectHandle<WebKitUserContentManager> content_;
    GObjectHandle<WebKitWebView> view_;
};

}  // namespace quorl
