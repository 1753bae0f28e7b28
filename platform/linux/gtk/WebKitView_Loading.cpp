#include "AccessibilityJoin.h"
#include "Log.h"
#include "PageHeaders.h"
#include "SessionState.h"
#include "Url.h"
#include "WebKitView.h"

#include <fmt/format.h>

namespace quorl {
namespace {

using Bytes = Handle<GBytes, g_bytes_unref>;

constexpr const char* formContentType = "application/x-www-form-urlencoded";

bool isHeader(const std::string& name, const char* other) {
    return g_ascii_strcasecmp(name.c_str(), other) == 0;
}

std::optional<std::string> headerValue(const PageRequest& request, const char* wanted) {
    for (const auto& [name, value] : request.headers) {
        if (isHeader(name, wanted))
            return value;
    }
    return std::nullopt;
}

GObjectHandle<WebKitURIRequest> engineRequest(const std::string& url) {
    return GObjectHandle<WebKitURIRequest>(webkit_uri_request_new(url.c_str()));
}

// As the engine writes it, which is how it comes back in its events.
std::string engineURL(const std::string& url) {
    return webkit_uri_request_get_uri(engineRequest(url).get());
}

std::vector<std::string> formFields(const std::string& body) {
    std::vector<std::string> fields;
    const Handle<gchar*, g_strfreev> parts(g_strsplit(body.c_str(), "&", -1));
    for (gchar** part = parts.get(); *part; ++part)
        fields.emplace_back(*part);
    return fields;
}

std::string decoded(std::string text) {
    for (char& c : text) {
        if (c == '+')
            c = ' ';
    }
    const GCharHandle plain(g_uri_unescape_string(text.c_str(), nullptr));
    return plain ? plain.get() : text;
}

std::string escaped(const std::string& text) {
    return GCharHandle(g_markup_escape_text(text.c_str(), -1)).get();
}

}  // namespace

void WebKitView::loadRequest(const PageRequest& request) {
    // Nothing has been shown and nobody looks: the view is as blank as it can be.
    if (!used_ && request.url == blankPage &&
        !(surroundings_.window && surroundings_.window->isVisible()))
        return;
    if (!g_uri_is_valid(request.url.c_str(), G_URI_FLAGS_NONE, nullptr)) {
        failLater({.code = -1, .description = "unsupported URL"});
        return;
    }
    load(request);
}

void WebKitView::loadFile(const std::string& path) {
    const GCharHandle url(g_filename_to_uri(path.c_str(), nullptr, nullptr));
    if (url)
        load({.url = url.get()});
    else
        failLater({.code = -1, .description = "unsupported path"});
}

void WebKitView::load(PageRequest request) {
    ++generation_;
    if (pageLives_ || tracker_.underway()) {
        if (tracker_.underway())
            runSoon([this] {
                delegate().didFailProvisionalNavigation(
                    {.code = LoadErrorCode::cancelled,
                     .description = "Another page was asked for"});
            });
        require(Renewal::view);
    }
    if (cookies_)
        cookies_->dropRequestCookies(nullptr);
    request_ = std::move(request);
    unexplained_.stop();
    hanging_.stop();
    timedOut_ = false;
    handshakes_ = 0;
    tracker_.requested();
    startTimer(request_.timeout);
    loadWaits_ = true;
    proceed();
}

void WebKitView::proceed() {
    if (due_ != Renewal::none)
        return;
    startEngine();
    used_ = true;
    // A process that is to be readable before its first page has to be started without one.
    if (joinedAccessibilityBus() && !readable_->isAsked())
        loadWarmPage();
    readable_->whenReadable([this] {
        if (!std::exchange(loadWaits_, false))
            return;
        tracker_.requested();
        startTimer(request_.timeout);
        afterCookies([this] { begin(); });
    });
}

void WebKitView::afterCookies(std::function<void()> step) {
    auto current = [this, generation = generation_, step = std::move(step)] {
        if (generation == generation_)
            step();
    };
    auto withRequestCookies = [this, current = std::move(current)] {
        const auto header = headerValue(request_, "Cookie");
        if (header)
            cookies_->addRequestCookies(*header, request_.url, current);
        else
            current();
    };
    restoreCookies(std::move(withRequestCookies));
}

void WebKitView::restoreCookies(std::function<void()> done) {
    if (cookiesRestored_) {
        done();
        return;
    }
    cookies_->restore([this, done = std::move(done)] {
        cookiesRestored_ = true;
        done();
    });
}

void WebKitView::begin() {
    if (request_.body) {
        loadForm();
        return;
    }
    // For a page that it is told to load the engine opens a connection ahead, and when that one's
    // certificate is refused, the page is cancelled without a reason. A page of the history has
    // no such forerunner, and its failure has its cause.
    if (handshakes_ == handshakeAttempts - 1 &&
        restore({.url = engineURL(request_.url), .referrer = "", .body = std::nullopt},
                LoadTracker::Purpose::page))
        return;
    const auto request = engineRequest(request_.url);
    const std::string sealed = sealedHeaders();
    SoupMessageHeaders* fields = webkit_uri_request_get_http_headers(request.get());
    if (fields && !sealed.empty())
        soup_message_headers_replace(fields, pageHeadersField, sealed.c_str());
    tracker_.expect(webkit_uri_request_get_uri(request.get()), LoadTracker::Purpose::page);
    webkit_web_view_load_request(engine_->view(), request.get());
}

// A form that comes from nowhere counts as coming from another site, and cookies that are for the
// site alone would stay behind. So the view goes to an empty page of that origin first.
void WebKitView::loadForm() {
    const auto origin = originOf(request_.url);
    if (!origin || origin == originOf(committedURL_)) {
        restoreForm();
        return;
    }
    tracker_.expect(engineURL(*origin), LoadTracker::Purpose::prelude);
    webkit_web_view_load_html(engine_->view(), "", origin->c_str());
}

void WebKitView::restoreForm() {
    const std::string contentType = headerValue(request_, "Content-Type").value_or(formContentType);
    const std::string sealed = sealedHeaders();
    const HistoryPage page{
        .url = engineURL(request_.url),
        .referrer = originOf(request_.url).value_or(""),
        .body = HistoryPage::Body{sealed.empty() ? contentType : pageHeadersContentType(sealed),
                                  *request_.body}};
    if (!restore(page, LoadTracker::Purpose::form))
        submitForm(contentType);
}

bool WebKitView::restore(const HistoryPage& page, LoadTracker::Purpose purpose) {
    const Handle<GVariant, g_variant_unref> state(sessionStateOf(page));
    const Bytes bytes(g_variant_get_data_as_bytes(state.get()));
    WebKitWebViewSessionState* session = webkit_web_view_session_state_new(bytes.get());
    wipeState(state.get());
    if (!session)
        return false;
    webkit_web_view_restore_session_state(engine_->view(), session);
    webkit_web_view_session_state_unref(session);
    WebKitBackForwardList* history = webkit_web_view_get_back_forward_list(engine_->view());
    tracker_.expect(page.url, purpose);
    webkit_web_view_go_to_back_forward_list_item(
        engine_->view(), webkit_back_forward_list_get_current_item(history));
    return true;
}

// The way for an engine that does not take the state: exact for ordinary forms, and for no other
// body.
void WebKitView::submitForm(const std::string& contentType) {
    logLine("WebKitView : the engine takes no session state, the body goes as a form");
    if (!contentType.starts_with(formContentType)) {
        tracker_.reset();
        failLater({.code = -1, .description = "a body of type " + contentType + " cannot be sent"});
        return;
    }
    std::string fields;
    for (const std::string& field : formFields(*request_.body)) {
        const auto separator = std::min(field.find('='), field.size());
        const std::string value = separator < field.size() ? field.substr(separator + 1) : "";
        fields +=
            fmt::format("<input type=hidden name=\"{}\" value=\"{}\">",
                        escaped(decoded(field.substr(0, separator))), escaped(decoded(value)));
    }
    const std::string url = engineURL(request_.url);
    const std::string html = fmt::format(
        "<form method=post action=\"{}\">{}</form><script>document.forms[0].submit()</script>",
        escaped(url), fields);
    tracker_.expect(url, LoadTracker::Purpose::page);
    webkit_web_view_load_html(engine_->view(), html.c_str(),
                              originOf(request_.url).value_or(blankPage).c_str());
}

std::string WebKitView::sealedHeaders() const {
    PageHeaders headers{.load = std::to_string(generation_), .fields = {}};
    if (request_.body && !headerValue(request_, "Content-Type"))
        headers.fields.emplace_back("Content-Type", formContentType);
    for (const auto& [name, value] : request_.headers) {
        // The engine takes cookies from its own store alone.
        if (isHeader(name, "Cookie"))
            continue;
        if (isValidHeader(name, value))
            headers.fields.emplace_back(name, value);
        else
            logLine("WebKitView : the header {} is no valid one and stays behind", name);
    }
    if (headers.fields.empty() || engine_->headersSecret().empty())
        return {};
    return sealPageHeaders(headers, engine_->headersSecret());
}

void WebKitView::stopLoading() {
    if (!used_)
        return;
    ++generation_;
    loadWaits_ = false;
    unexplained_.stop();
    if (tracker_.takeUnexplained())
        tracker_.givenUp();
    tracker_.stopped();
    webkit_web_view_stop_loading(engine_->view());
    if (!tracker_.awaitsCommit())
        timer_.stop();
}

void WebKitView::failLater(LoadError error) {
    timer_.stop();
    runSoon([this, generation = ++generation_, error = std::move(error)] {
        if (generation == generation_)
            delegate().didFailProvisionalNavigation(error);
    });
}

}  // namespace quorl
