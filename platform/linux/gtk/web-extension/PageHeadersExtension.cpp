// Runs inside the web process: puts the header fields of a page request into the request that goes
// out, and takes them out again when the server redirects to another origin; lets nothing be loaded
// in the clear; and takes the agent's channel away from every frame but the page itself.
//
// The engine means to read a page that was posted from its cache first, and to send the body only
// when that fails. Having no cache here, it sends the body at once, and once more when the answer
// does not come. So the first attempt is led nowhere, and the second is the only one that is sent.
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

constexpr const char* nowhere = "x-quorl:nowhere";
constexpr const char* contentType = "Content-Type";

// Before any script of the frame runs, and for good.
constexpr const char* closeChannel = R"js(if (globalThis.webkit) {
    for (let o = webkit; o; o = Object.getPrototypeOf(o))
        delete o.messageHandlers;
    Object.preventExtensions(Object.getPrototypeOf(webkit));
})js";

std::optional<PageHeaders> carriedIn(const char* field, SoupMessageHeaders* fields,
                                     const std::string& secret) {
    const char* carried = soup_message_headers_get_one(fields, field);
    return carried ? openPageHeaders(carried, secret) : std::nullopt;
}

bool isContentType(const std::string& name) {
    return g_ascii_strcasecmp(name.c_str(), contentType) == 0;
}

void put(SoupMessageHeaders* fields, const PageHeaders& headers) {
    soup_message_headers_remove(fields, pageHeadersField);
    for (const auto& [name, value] : headers.fields)
        soup_message_headers_replace(fields, name.c_str(), value.c_str());
}

// The body's type stays where the body goes along.
void take(SoupMessageHeaders* fields, const PageHeaders& headers) {
    soup_message_headers_remove(fields, pageHeadersField);
    for (const auto& [name, value] : headers.fields) {
        if (!isContentType(name))
            soup_message_headers_remove(fields, name.c_str());
        else if (soup_message_headers_get_one(fields, name.c_str()))
            soup_message_headers_replace(fields, name.c_str(), value.c_str());
    }
}

bool isInTheClear(const char* url) {
    const GCharHandle scheme(g_uri_parse_scheme(url));
    return scheme && (g_ascii_strcasecmp(scheme.get(), "http") == 0 ||
                      g_ascii_strcasecmp(scheme.get(), "ws") == 0 ||
                      g_ascii_strcasecmp(scheme.get(), "ftp") == 0);
}

gboolean sendRequest(WebKitWebPage*, WebKitURIRequest* request, WebKitURIResponse* redirect,
                     gpointer data) {
    auto& state = *static_cast<PageState*>(data);
    SoupMessageHeaders* fields = webkit_uri_request_get_http_headers(request);
    const char* url = webkit_uri_request_get_uri(request);
    if (!url || isInTheClear(url))
        return TRUE;
    if (!fields)
        return FALSE;
    if (redirect) {
        // Redirects of what a page itself asks for are none of ours.
        if (state.url != webkit_uri_response_get_uri(redirect))
            return FALSE;
        state.url = url;
        if (originOf(url) != state.origin)
            take(fields, state.headers);
        return FALSE;
    }
    auto headers = carriedIn(pageHeadersField, fields, state.secret);
    if (!headers) {
        headers = carriedIn(contentType, fields, state.secret);
        if (!headers)
            return FALSE;
        if (state.headers.load != headers->load) {
            state.headers = std::move(*headers);
            webkit_uri_request_set_uri(request, nowhere);
            return FALSE;
        }
    }
    put(fields, *headers);
    state = {state.secret, std::move(*headers), originOf(url), url};
    return FALSE;
}

void destroyState(gpointer data, GClosure*) {
    std::unique_ptr<PageState>(static_cast<PageState*>(data));
}

void windowObjectCleared(WebKitScriptWorld* world, WebKitWebPage*, WebKitFrame* frame, gpointer) {
    if (webkit_frame_is_main_frame(frame))
        return;
    const GObjectHandle<JSCContext> context(
        webkit_frame_get_js_context_for_script_world(frame, world));
    const GObjectHandle<JSCValue> nothing(jsc_context_evaluate(context.get(), closeChannel, -1));
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
    g_signal_connect(webkit_script_world_get_default(), "window-object-cleared",
                     G_CALLBACK(windowObjectCleared), nullptr);
    // Lives as long as the process.
    g_signal_connect_data(
        extension, "page-created", G_CALLBACK(pageCreated), g_variant_dup_string(secret, nullptr),
        [](gpointer text, GClosure*) { g_free(text); }, static_cast<GConnectFlags>(0));
}
