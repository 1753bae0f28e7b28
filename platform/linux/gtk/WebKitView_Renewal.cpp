#include "Log.h"
#include "WebKitView.h"

#include <algorithm>

namespace quorl {
namespace {

// Reading the cookies takes milliseconds.
constexpr std::chrono::seconds cookiesLimit{2};

constexpr const char* warmPage = "<html></html>";

}  // namespace

void WebKitView::clear() {
    if (!used_)
        return;
    ++generation_;
    loadWaits_ = false;
    request_ = {};
    timer_.stop();
    hanging_.stop();
    unexplained_.stop();
    tracker_.reset();
    require(Renewal::session);
}

void WebKitView::require(Renewal renewal) {
    if (due_ == Renewal::none && !renewing_)
        // The engine may be in the middle of telling us something.
        runSoon([this] { renew(); });
    due_ = std::max(due_, renewal);
}

void WebKitView::renew() {
    renewing_ = true;
    engine_->endPage();
    if (due_ != Renewal::session || !cookiesRestored_) {
        finishRenewal();
        return;
    }
    renewalLimit_.start(cookiesLimit, [this] {
        logLine("WebKitView : the cookies did not come in time and are kept as they were");
        finishRenewal();
    });
    cookies_->whenIdle([this] {
        cookies_->save([this] {
            // The jar goes with the session, and it is still at work.
            runSoon([this] {
                if (renewalLimit_.running())
                    finishRenewal();
            });
        });
    });
}

void WebKitView::finishRenewal() {
    // The session must not go while its cookies are being asked for: the engine would answer into
    // what is no longer there.
    if (savingCookies_) {
        renewalHeldBack_ = true;
        return;
    }
    renewalLimit_.stop();
    renewing_ = false;
    disconnectView();
    const bool session = std::exchange(due_, Renewal::none) == Renewal::session;
    if (session) {
        cookies_.reset();
        engine_.reset();
        cookiesRestored_ = used_ = false;
    } else {
        engine_->renewView();
        connectView();
    }
    committedURL_.clear();
    pageLives_ = diedSinceCommit_ = false;
    tracker_.reset();
    if (loadWaits_) {
        tracker_.requested();
        proceed();
    } else if (session) {
        warmUp();
    }
}

void WebKitView::warmUp() {
    if (engine_)
        return;
    warming_ = GlibSource(g_idle_add_full(
        G_PRIORITY_LOW,
        [](gpointer self) {
            static_cast<WebKitView*>(self)->warmNow();
            return G_SOURCE_REMOVE;
        },
        this, nullptr));
}

void WebKitView::warmNow() {
    startEngine();
    restoreCookies([] {});
    loadWarmPage();
}

void WebKitView::loadWarmPage() {
    readable_->ask();
    tracker_.expect(blankPage, LoadTracker::Purpose::warmUp);
    webkit_web_view_load_html(engine_->view(), warmPage, nullptr);
}

}  // namespace quorl
