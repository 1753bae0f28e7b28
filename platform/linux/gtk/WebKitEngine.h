#pragma once

#include "CertificatePolicy.h"
#include "GlibSupport.h"

#include <webkit2/webkit2.h>

#include <string>

namespace quorl {

/// A session of the engine, with one view at a time. Making it starts the engine's processes.
/// Nothing that pages store outlives it.
class WebKitEngine {
  public:
    /// On which our own pages say what a screen reader is to speak at once.
    static constexpr const char* readerChannel = "reader";

    /// Pages post messages on the channel of that name.
    WebKitEngine(CertificatePolicy certificates, const std::string& channel);
    ~WebKitEngine();
    WebKitEngine(const WebKitEngine&) = delete;
    WebKitEngine& operator=(const WebKitEngine&) = delete;

    /// Ends the process that draws the page, whatever it is doing.
    void endPage();
    /// A fresh view in the place of the present one, whose page, process and history end; the
    /// session's cookies stay.
    void renewView();

    WebKitWebView* view() const { return view_.get(); }
    WebKitUserContentManager* content() const { return content_.get(); }
    WebKitCookieManager* cookies() const;
    /// Seals page headers for the web process; empty when its extension is not installed, and
    /// headers cannot be put in.
    const std::string& headersSecret() const { return headersSecret_; }

  private:
    void installExtension();
    void makeView();
    void destroyView();

    std::string channel_;
    std::string headersSecret_;
    GObjectHandle<WebKitWebContext> context_;
    GObjectHandle<WebKitUserContentManager> content_;
    GObjectHandle<WebKitWebView> view_;
};

}  // namespace quorl
