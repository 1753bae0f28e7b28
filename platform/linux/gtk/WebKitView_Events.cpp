#include "LoadErrors.h"
#include "Log.h"
#include "WebKitView.h"

#include <string.h>

namespace quorl {
namespace {

// A load that replaces another follows within milliseconds.
constexpr std::chrono::milliseconds explanationDelay{250};
// A page that is not busy answers at once.
constexpr std::chrono::seconds hangLimit{5};
// The engine cancels a handshake by itself: at once over a certificate that it refuses, sometimes
// without saying so; after ten seconds when the other end says nothing.
constexpr std::chrono::seconds longestRefusal{5};

constexpr const char* focusAnewScript = R"js((() => {
    const focused = document.activeElement;
    focused?.blur();
    focused?.focus({ preventScroll: true });
})())js";

bool isFilePage(const std::string& url) {
    return url.starts_with("file:");
}

// The page without content, where error texts show, and the offline page.
bool isOwnPage(const std::string& url) {
    return isBlankPage(url) || isFilePage(url);
}

std::string text(const char* value) {
    return value ? value : "";
}

bool isSelfSigned(GTlsCertificate* certificate) {
    const GCharHandle subject(g_tls_certificate_get_subject_name(certificate));
    const GCharHandle issuer(g_tls_certificate_get_issuer_name(certificate));
    return subject && issuer && g_strcmp0(subject.get(), issuer.get()) == 0;
}

LoadTracker::Failure failureKind(const GError& error) {
    if (isCancellation(error))
        return LoadTracker::Failure::cancellation;
    if (g_error_matches(&error, WEBKIT_POLICY_ERROR,
                        WEBKIT_POLICY_ERROR_FRAME_LOAD_INTERRUPTED_BY_POLICY_CHANGE))
        return LoadTracker::Failure::refusal;
    return LoadTracker::Failure::other;
}

}  // namespace

// What starts on a page rather than with us, and must not: the blank page shows error texts, whose
// markup is nobody's page, so only somebody's own click leads on, but for the page's own links,
// which lead nowhere; and what was posted once is not posted again by going back.
bool WebKitView::isForeign(WebKitNavigationAction* action, const std::string& url) const {
    const auto type = webkit_navigation_action_get_navigation_type(action);
    if (isBlankPage(committedURL_) && (url == OwnLink::retry || url == OwnLink::close))
        return false;
    if (isBlankPage(committedURL_))
        return type != WEBKIT_NAVIGATION_TYPE_LINK_CLICKED || !lockdown_->somebodyActs();
    const char* method =
        webkit_uri_request_get_http_method(webkit_navigation_action_get_request(action));
    return type == WEBKIT_NAVIGATION_TYPE_FORM_RESUBMITTED ||
           (type == WEBKIT_NAVIGATION_TYPE_BACK_FORWARD && g_strcmp0(method, "POST") == 0);
}

gboolean WebKitView::decidePolicy(WebKitPolicyDecision* decision, WebKitPolicyDecisionType type) {
    if (due_ != Renewal::none) {
        webkit_policy_decision_ignore(decision);
        return TRUE;
    }
    switch (type) {
        case WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION:
            decideNavigation(decision);
            break;
        case WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION:
            logLine("WebKitView : a page asked for a window of its own, which it does not get");
            webkit_policy_decision_ignore(decision);
            break;
        case WEBKIT_POLICY_DECISION_TYPE_RESPONSE:
            decideResponse(decision);
            break;
    }
    return TRUE;
}

void WebKitView::decideNavigation(WebKitPolicyDecision* decision) {
    WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(
        WEBKIT_NAVIGATION_POLICY_DECISION(decision));
    const std::string url =
        text(webkit_uri_request_get_uri(webkit_navigation_action_get_request(action)));
    const LoadTracker::Action seen{
        .resubmitsForm = webkit_navigation_action_get_navigation_type(action) ==
                         WEBKIT_NAVIGATION_TYPE_FORM_RESUBMITTED,
        .isRedirect = webkit_navigation_action_is_redirect(action) != FALSE};
    // The delegate may load something else from inside, and the engine takes that in good part.
    bool allowed = false;
    switch (tracker_.navigationAction(url, seen)) {
        case LoadTracker::Policy::ask:
            if (!tracker_.awaitsOwnPage() && !seen.isRedirect && isForeign(action, url)) {
                logLine("WebKitView : a navigation that nobody asked for is refused");
                break;
            }
            explainCancellation();
            allowed = delegate().decidePolicyForNavigationAction(url) == NavigationDecision::allow;
            if (!allowed)
                tracker_.refused(seen.isRedirect);
            break;
        case LoadTracker::Policy::allow:
            unexplained_.stop();
            allowed = true;
            break;
        case LoadTracker::Policy::ignore:
            break;
    }
    if (seen.isRedirect)
        answer(decision, allowed);
    else if (allowed)
        webkit_policy_decision_use(decision);
    else
        webkit_policy_decision_ignore(decision);
    if (!tracker_.awaitsCommit())
        timer_.stop();
}

// Cookies that were given for one request are gone before anything else can send or read them.
void WebKitView::answer(WebKitPolicyDecision* decision, bool allowed) {
    const auto decide = allowed ? webkit_policy_decision_use : webkit_policy_decision_ignore;
    if (!cookies_->holdsRequestCookies() || tracker_.preparing()) {
        decide(decision);
        return;
    }
    const std::shared_ptr<WebKitPolicyDecision> kept(retained(decision));
    cookies_->dropRequestCookies([kept, decide] { decide(kept.get()); });
}

void WebKitView::decideResponse(WebKitPolicyDecision* decision) {
    auto* response = WEBKIT_RESPONSE_POLICY_DECISION(decision);
    if (webkit_response_policy_decision_is_main_frame_main_resource(response))
        bytesArrived();
    if (webkit_response_policy_decision_is_mime_type_supported(response)) {
        answer(decision, true);
        return;
    }
    logLine("WebKitView : a download is refused");
    // What a page leads to is refused and the page stays; what we asked for ourselves has failed.
    if (webkit_response_policy_decision_is_main_frame_main_resource(response) &&
        !tracker_.awaitsOwnPage())
        tracker_.refused(true);
    webkit_policy_decision_ignore(decision);
}

void WebKitView::bytesArrived() {
    if (timer_.running() && !tracker_.awaitsOwnPage())
        startTimer(configuration_.pagePatience);
}

void WebKitView::loadChanged(WebKitLoadEvent event) {
    if (due_ != Renewal::none)
        return;
    LoadTracker::Report report = LoadTracker::Report::nothing;
    switch (event) {
        case WEBKIT_LOAD_STARTED:
            explainCancellation();
            startedAt_ = std::chrono::steady_clock::now();
            report = tracker_.started();
            if (tracker_.awaitsCommit() && !tracker_.preparing() && !timer_.running())
                startTimer(configuration_.pagePatience);
            break;
        case WEBKIT_LOAD_REDIRECTED:
            bytesArrived();
            break;
        case WEBKIT_LOAD_COMMITTED:
            committedURL_ = currentURL();
            report = tracker_.committed(committedURL_);
            diedSinceCommit_ = false;
            if (report == LoadTracker::Report::committed && !isFilePage(committedURL_))
                pageLives_ = true;
            Lockdown::fitTextSize(engine_->view(), isOwnPage(committedURL_));
            gtk_widget_queue_draw(GTK_WIDGET(engine_->view()));
            break;
        case WEBKIT_LOAD_FINISHED:
            report = tracker_.finished();
            break;
    }
    deliver(report, {.code = LoadErrorCode::unknown,
                     .description = "The page may not be asked for under this URL"});
}

gboolean WebKitView::loadFailed(WebKitLoadEvent event, const char* url, GError* error) {
    if (due_ != Renewal::none)
        return TRUE;
    const bool afterCommit = event == WEBKIT_LOAD_COMMITTED || event == WEBKIT_LOAD_FINISHED;
    handshakeCancelled_ = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
    certificateSuspected_ = handshakeCancelled_ && text(url).starts_with("https:") &&
                            std::chrono::steady_clock::now() - startedAt_ < longestRefusal;
    const auto report = tracker_.failure(failureKind(*error), afterCommit);
    const int code =
        afterCommit && isCancellation(*error) ? LoadErrorCode::cancelled : loadErrorCode(*error);
    deliver(report, {.code = code, .description = text(error->message) + ": " + text(url)});
    return TRUE;
}

gboolean WebKitView::certificateRefused(const char* url, GTlsCertificate* certificate,
                                        GTlsCertificateFlags faults) {
    if (due_ != Renewal::none)
        return TRUE;
    const int code = certificateErrorCode(faults, isSelfSigned(certificate));
    deliver(tracker_.failure(LoadTracker::Failure::other, false),
            {.code = code, .description = certificateErrorDescription(code, text(url))});
    return TRUE;
}

void WebKitView::deliver(LoadTracker::Report report, const LoadError& error) {
    if (!tracker_.awaitsCommit()) {
        timer_.stop();
        hanging_.stop();
    }
    switch (report) {
        case LoadTracker::Report::nothing:
            break;
        case LoadTracker::Report::started:
            delegate().didStartProvisionalNavigation();
            break;
        case LoadTracker::Report::committed:
            delegate().didCommitNavigation();
            break;
        case LoadTracker::Report::finished:
            delegate().didFinishNavigation(committedURL_);
            break;
        case LoadTracker::Report::preludeOver:
            restoreForm();
            break;
        case LoadTracker::Report::cancelled:
            delegate().didFailProvisionalNavigation(
                {.code = timedOut_ ? LoadErrorCode::timedOut : LoadErrorCode::cancelled,
                 .description = error.description});
            break;
        case LoadTracker::Report::failed:
            delegate().didFailProvisionalNavigation(error);
            break;
        case LoadTracker::Report::failedAfterCommit:
            delegate().didFailNavigation(error);
            break;
        case LoadTracker::Report::unexplained:
            // A page never breaks off a handshake, so nothing is to follow that one.
            unexplained_.start(
                handshakeCancelled_ ? std::chrono::milliseconds(1) : explanationDelay,
                [this, error] { giveUp(error); });
            break;
    }
}

void WebKitView::explainCancellation() {
    unexplained_.stop();
    if (tracker_.takeUnexplained())
        delegate().didFailProvisionalNavigation(
            {.code = LoadErrorCode::cancelled, .description = "Another page was asked for"});
}

void WebKitView::giveUp(LoadError error) {
    const bool ours = tracker_.awaitsOwnPage();
    if (certificateSuspected_ && ours && ++handshakes_ < handshakeAttempts) {
        tracker_.repeat();
        begin();
        return;
    }
    tracker_.givenUp();
    timer_.stop();
    if (certificateSuspected_)
        error.code = LoadErrorCode::serverCertificateUntrusted;
    else if (!ours && !handshakeCancelled_)
        error.code = LoadErrorCode::cancelled;  // the page stopped what it had begun
    else
        error.code = LoadErrorCode::timedOut;
    delegate().didFailProvisionalNavigation(error);
}

void WebKitView::startTimer(std::chrono::seconds limit) {
    limit_ = limit;
    timer_.start(limit, [this] { timeIsUp(); });
}

void WebKitView::timeIsUp() {
    logLine("WebKitView : timed out, the page did not come within {} s", limit_.count());
    const bool started = !tracker_.awaitsStart();
    timedOut_ = true;
    stopLoading();
    const LoadError error{.code = LoadErrorCode::timedOut, .description = "The request timed out"};
    if (!started) {
        delegate().didFailProvisionalNavigation(error);
        return;
    }
    hanging_.start(hangLimit, [this, error] {
        logLine("WebKitView : the page's process does not respond and is ended");
        tracker_.reset();
        pageLives_ = true;
        delegate().didFailProvisionalNavigation(error);
    });
}

void WebKitView::progressChanged(GParamSpec*) {
    if (due_ == Renewal::none && !tracker_.preparing())
        delegate().estimatedProgressChanged(
            webkit_web_view_get_estimated_load_progress(engine_->view()));
}

void WebKitView::processTerminated(WebKitWebProcessTerminationReason) {
    if (due_ != Renewal::none)
        return;
    logLine("WebKitView : the web process has ended");
    ++generation_;
    tracker_.reset();
    timer_.stop();
    unexplained_.stop();
    committedURL_.clear();
    // Told once per page: where no web process can live, the error page would bring down one
    // after the other.
    if (!std::exchange(diedSinceCommit_, true))
        delegate().webContentProcessDidTerminate();
}

void WebKitView::messageReceived(WebKitJavascriptResult* result) {
    if (tracker_.awaitsOwnPage() || due_ != Renewal::none) {
        logLine("WebKitView : a message of the page before is dropped");
        return;
    }
    // Nobody's page: what speaks there is a script in an error text.
    if (isBlankPage(committedURL_)) {
        logLine("WebKitView : a message of the blank page is dropped");
        return;
    }
    JSCValue* value = webkit_javascript_result_get_js_value(result);
    std::optional<std::string> body;
    if (jsc_value_is_string(value)) {
        const Handle<GBytes, g_bytes_unref> bytes(jsc_value_to_string_as_bytes(value));
        gsize size = 0;
        const auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
        body.emplace(data ? data : "", size);
        // A copy for us alone, of what may be a code or a key.
        if (data)
            explicit_bzero(const_cast<char*>(data), size);
    }
    delegate().didReceiveScriptMessage(configuration_.scriptMessageHandlerName, body,
                                       {.pageURL = committedURL_});
}

// The engine tells readers nothing of what a page announces, so that the window does. Our own pages
// alone: another's could speak for the login screen while nobody looks at it.
void WebKitView::announcementReceived(WebKitJavascriptResult* result) {
    JSCValue* value = webkit_javascript_result_get_js_value(result);
    if (!surroundings_.window || !isFilePage(committedURL_) || !jsc_value_is_object(value))
        return;
    const GObjectHandle<JSCValue> words(jsc_value_object_get_property(value, "words"));
    const GObjectHandle<JSCValue> once(jsc_value_object_get_property(value, "once"));
    surroundings_.window->announce(
        GCharHandle(jsc_value_to_string(words.get())).get(),
        jsc_value_to_boolean(once.get()) ? Announced::once : Announced::always);
}

// What gets the focus anew is told of; pages of others need not know who reads them.
void WebKitView::tellFocus() {
    if (isOwnPage(committedURL_))
        evaluateJavaScript(focusAnewScript, nullptr);
}

}  // namespace quorl
