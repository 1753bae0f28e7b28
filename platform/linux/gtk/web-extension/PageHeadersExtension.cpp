// Runs inside the web process: puts the header fields of a page request into the request that goes
// out, and takes them out again when the server redirects to another origin.
#include "PageHeaders.h"
#include "Url.h"

#include <webkit2/webkit-web-extension.h>

#include <memory>
#include <optional>
#include <string>

namespace {

using namespace quorl;

struct PageState {
    std::string secret;
    PageHeaders headers;                ///< of the page request that was sent last
    std::optional<std::string> origin;  ///< where it was sent first
    std::string url;                    ///< where it, or what it was redirected to, was sent last
};

std::optional<PageHeaders> carriedHeaders(SoupMessageHeaders* fields, const std::string& secret) {
    for (const char* name : {pageHeadersField, "Content-Type"}) {
        const char* carried = soup_message_headers_get_one(fields, name);
        if (auto headers = carried ? openPageHeaders(carried, secret) : std::nullopt)
            return headers;
    }
    return std::nullopt;
}

bool isContentType(const std::string& name) {
    return g_ascii_strcasecmp(name.c_str(), "Content-Type") == 0;
}

void put(SoupMessageHeaders* fields, const PageHeaders& headers) {
    soup_message_headers_remove(fields, pageHeadersField);
    for (const auto& [name, value] : headers)
        soup_message_headers_replace(fields, name.c_str(), value.c_str());
}

// The body's type stays where the body goes along.
void take(SoupMessageHeaders* fields, const PageHeaders& headers) {
    soup_message_headers_remove(fields, pageHeadersField);
    for (const auto& [name, value] : headers) {
        if (!isContentType(name))
            soup_message_headers_remove(fields, name.c_str());
        else if (soup_message_headers_get_one(fields, name.c_str()))
            soup_message_headers_replace(fields, name.c_str(), value.c_str());
    }
}

gboolean sendRequest(WebKitWebPage*, WebKitURIRequest* request, WebKitURIResponse* redirect,
                     gpointer data) {
    auto& state = *static_cast<PageState*>(data);
    SoupMessageHeaders* fields = webkit_uri_request_get_http_headers(request);
    const char* url = webkit_uri_request_get_uri(request);
    if (!fields || !url)
        return FALSE;
    if (redirect) {
        // Redirects of what a page itself asks for are none of ours.
        if (state.url != webkit_uri_response_get_uri(redirect))
            return FALSE;
        state.url = url;
        if (originOf(url) != state.origin)
            take(fields, state.headers);
    } else if (auto headers = carriedHeaders(fields, state.secret)) {
        put(fields, *headers);
        state = {state.secret, std::move(*headers), originOf(url), url};
    }
    return FALSE;
}

void destroyState(gpointer data, GClosure*) {
    std::unique_ptr<PageState>(static_cast<PageState*>(data));
}

void pageCreated(WebKitWebExtension*, WebKitWebPage* page, gpointer secret) {
    auto state = std::make_unique<PageState>();
    state->secret = static_cast<const char*>(secret);
    g_signal_connect_data(page, "send-request", G_CALLBACK(sendRequest), state.release(),
                          destroyState, static_cast<GConnectFlags>(0));
}

}  // namespace

extern "C" G_MODULE_EXPORT void webkit_web_extension_initialize_with_user_data(
    WebKitWebExtension* extension, GVariant* secret) {
    // Lives as long as the process.
    g_signal_connect_data(
        extension, "page-created", G_CALLBACK(pageCreated), g_variant_dup_string(secret, nullptr),
        [](gpointer text, GClosure*) { g_free(text); }, static_cast<GConnectFlags>(0));
}
