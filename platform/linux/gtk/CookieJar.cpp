#include "CookieJar.h"

#include "AsyncCall.h"
#include "AtomicFile.h"
#include "Log.h"
#include "Url.h"
#include "Value.h"

namespace quorl {
namespace {

constexpr std::chrono::milliseconds saveDelay{200};
constexpr std::size_t largestFile = 1 << 20;
constexpr mode_t fileMode = 0600;

struct CookieList {
    explicit CookieList(GList* cookies) : head(cookies) {}
    ~CookieList() {
        g_list_free_full(
            head, [](gpointer cookie) { soup_cookie_free(static_cast<SoupCookie*>(cookie)); });
    }
    CookieList(const CookieList&) = delete;
    CookieList& operator=(const CookieList&) = delete;

    template <class Function>
    void forEach(Function function) const {
        for (GList* entry = head; entry; entry = entry->next)
            function(static_cast<SoupCookie*>(entry->data));
    }

    GList* head;
};

void fetchAll(WebKitCookieManager* manager, std::function<void(const CookieList&)> done) {
    webkit_cookie_manager_get_all_cookies(
        manager, nullptr, AsyncCall::callback(),
        AsyncCall::data([done = std::move(done)](GObject* source, GAsyncResult* result) {
            done(CookieList(webkit_cookie_manager_get_all_cookies_finish(
                WEBKIT_COOKIE_MANAGER(source), result, nullptr)));
        }));
}

std::string text(const char* value) {
    return value ? value : "";
}

Value toValue(SoupCookie* cookie) {
    return {{"name", text(soup_cookie_get_name(cookie))},
            {"value", text(soup_cookie_get_value(cookie))},
            {"domain", text(soup_cookie_get_domain(cookie))},
            {"path", text(soup_cookie_get_path(cookie))},
            {"expires", g_date_time_to_unix(soup_cookie_get_expires(cookie))},
            {"secure", soup_cookie_get_secure(cookie) != FALSE},
            {"httpOnly", soup_cookie_get_http_only(cookie) != FALSE},
            {"sameSite", static_cast<int>(soup_cookie_get_same_site_policy(cookie))}};
}

SoupSameSitePolicy sameSitePolicy(std::int64_t stored) {
    switch (stored) {
        case SOUP_SAME_SITE_POLICY_LAX:
            return SOUP_SAME_SITE_POLICY_LAX;
        case SOUP_SAME_SITE_POLICY_STRICT:
            return SOUP_SAME_SITE_POLICY_STRICT;
        default:
            return SOUP_SAME_SITE_POLICY_NONE;
    }
}

SoupCookieHandle toCookie(const Value& stored) {
    const auto field = [&](const char* key) { return stringValue(stored, key).value_or(""); };
    const std::int64_t expires = integerValue(stored, "expires");
    const Handle<GDateTime, g_date_time_unref> end(g_date_time_new_from_unix_utc(expires));
    const Handle<GDateTime, g_date_time_unref> now(g_date_time_new_now_utc());
    if (!end || g_date_time_compare(end.get(), now.get()) <= 0 || field("name").empty() ||
        field("domain").empty())
        return nullptr;
    SoupCookieHandle cookie(soup_cookie_new(field("name").c_str(), field("value").c_str(),
                                            field("domain").c_str(), field("path").c_str(), -1));
    soup_cookie_set_expires(cookie.get(), end.get());
    soup_cookie_set_secure(cookie.get(), integerValue(stored, "secure") != 0);
    soup_cookie_set_http_only(cookie.get(), integerValue(stored, "httpOnly") != 0);
    soup_cookie_set_same_site_policy(cookie.get(),
                                     sameSitePolicy(integerValue(stored, "sameSite")));
    return cookie;
}

// Adds all of them and calls back when the last is in place.
void addAll(WebKitCookieManager* manager, const std::vector<SoupCookieHandle>& cookies,
            std::function<void()> done) {
    if (cookies.empty()) {
        done();
        return;
    }
    auto open = std::make_shared<std::size_t>(cookies.size());
    auto finish = std::make_shared<std::function<void()>>(std::move(done));
    for (const SoupCookieHandle& cookie : cookies)
        webkit_cookie_manager_add_cookie(manager, cookie.get(), nullptr, AsyncCall::callback(),
                                         AsyncCall::data([open, finish](GObject*, GAsyncResult*) {
                                             if (--*open == 0)
                                                 (*finish)();
                                         }));
}

}  // namespace

CookieJar::CookieJar(WebKitCookieManager* manager, std::string file)
    : manager_(retained(manager)), file_(std::move(file)) {}

void CookieJar::restore(std::function<void()> done) {
    std::vector<SoupCookieHandle> cookies;
    if (const auto content = readFile(file_, largestFile)) {
        const Value stored = Value::parse(asText(*content), nullptr, false);
        if (!stored.is_array())
            logLine("CookieJar : the kept cookies cannot be read and are forgotten");
        for (const Value& entry : stored.is_array() ? stored : Value::array()) {
            if (SoupCookieHandle cookie = toCookie(entry))
                cookies.push_back(std::move(cookie));
        }
    }
    addAll(manager_.get(), cookies, [this, alive = std::weak_ptr(alive_), done = std::move(done)] {
        if (alive.expired())
            return;
        if (!std::exchange(watched_, true))
            signals_.connect<&CookieJar::changed>(manager_.get(), "changed", this);
        done();
    });
}

void CookieJar::list(WebView::CookiesCompletion completion) {
    ++atWork_;
    fetchAll(manager_.get(), [this, alive = std::weak_ptr(alive_),
                              completion = std::move(completion)](const CookieList& all) {
        if (alive.expired())
            return;
        std::vector<Cookie> cookies;
        all.forEach([&](SoupCookie* cookie) {
            cookies.push_back({.name = text(soup_cookie_get_name(cookie)),
                               .domain = text(soup_cookie_get_domain(cookie)),
                               .path = text(soup_cookie_get_path(cookie)),
                               .sessionOnly = soup_cookie_get_expires(cookie) == nullptr});
        });
        completion(std::move(cookies));
        if (!alive.expired())
            ended();
    });
}

void CookieJar::remove(const Cookie& cookie, std::function<void()> completion) {
    ++atWork_;
    // The engine deletes by the value too, so the cookie is looked up as it stands now.
    fetchAll(manager_.get(), [this, alive = std::weak_ptr(alive_), cookie,
                              completion = std::move(completion)](const CookieList& all) {
        const auto done = [this, alive, completion](GObject*, GAsyncResult*) {
            if (!alive.expired() && completion)
                completion();
            if (!alive.expired())
                ended();
        };
        SoupCookie* target = nullptr;
        all.forEach([&](SoupCookie* entry) {
            if (text(soup_cookie_get_name(entry)) == cookie.name &&
                text(soup_cookie_get_domain(entry)) == cookie.domain &&
                text(soup_cookie_get_path(entry)) == cookie.path)
                target = entry;
        });
        if (alive.expired())
            return;
        if (target)
            webkit_cookie_manager_delete_cookie(manager_.get(), target, nullptr,
                                                AsyncCall::callback(), AsyncCall::data(done));
        else
            done(nullptr, nullptr);
    });
}

void CookieJar::addRequestCookies(const std::string& header, const std::string& url,
                                  std::function<void()> done) {
    const ParsedURL uri = parseURL(url);
    const Handle<gchar*, g_strfreev> pairs(g_strsplit(header.c_str(), ";", -1));
    for (gchar** pair = pairs.get(); uri && *pair; ++pair) {
        const std::string entry = g_strstrip(*pair);
        const auto separator = entry.find('=');
        if (separator != std::string::npos && separator != 0)
            requestCookies_.emplace_back(soup_cookie_new(
                entry.substr(0, separator).c_str(), entry.substr(separator + 1).c_str(),
                g_uri_get_host(uri.get()), g_uri_get_path(uri.get()), -1));
    }
    for (const SoupCookieHandle& cookie : requestCookies_) {
        soup_cookie_set_secure(cookie.get(), TRUE);
        soup_cookie_set_http_only(cookie.get(), TRUE);
    }
    addAll(manager_.get(), requestCookies_,
           [alive = std::weak_ptr(alive_), done = std::move(done)] {
               if (!alive.expired())
                   done();
           });
}

void CookieJar::dropRequestCookies(std::function<void()> done) {
    auto open = std::make_shared<std::size_t>(requestCookies_.size());
    for (const SoupCookieHandle& cookie : std::exchange(requestCookies_, {}))
        // The engine deletes by the value too.
        webkit_cookie_manager_delete_cookie(manager_.get(), cookie.get(), nullptr,
                                            AsyncCall::callback(),
                                            AsyncCall::data([open, done](GObject*, GAsyncResult*) {
                                                if (--*open == 0 && done)
                                                    done();
                                            }));
}

void CookieJar::whenIdle(std::function<void()> done) {
    if (atWork_ == 0)
        done();
    else
        waiting_.push_back(std::move(done));
}

void CookieJar::ended() {
    if (--atWork_ > 0)
        return;
    for (const auto& done : std::exchange(waiting_, {}))
        done();
}

void CookieJar::changed() {
    if (!saving_.running())
        saving_.start(saveDelay, [this] { save(nullptr); });
}

void CookieJar::save(std::function<void()> done) {
    saving_.stop();
    fetchAll(manager_.get(), [this, alive = std::weak_ptr(alive_),
                              done = std::move(done)](const CookieList& all) {
        if (alive.expired())
            return;
        Value kept = Value::array();
        all.forEach([&](SoupCookie* cookie) {
            if (soup_cookie_get_expires(cookie))
                kept.push_back(toValue(cookie));
        });
        const std::string content = kept.dump(-1, ' ', true, Value::error_handler_t::replace);
        if (const auto written = replaceFile(file_, asBytes(content), fileMode); !written)
            logLine("CookieJar : the cookies cannot be kept: {}", written.error());
        if (done)
            done();
    });
}

}  // namespace quorl
