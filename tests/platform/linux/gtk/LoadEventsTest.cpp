#include "LoadErrors.h"
#include "LoadTracker.h"
#include "PageHeaders.h"

#include <gtest/gtest.h>
#include <webkit2/webkit2.h>

#include <array>
#include <functional>
#include <map>
#include <sstream>

namespace quorl::test {
namespace {

// What the engine was seen to say, word by word, and what is made of it. Words:
// request, page:URL, form:URL, prelude:URL, redirect:URL, policy:URL, resubmit:URL, stop, start,
// commit:URL, finish, cancel, error, giveUp, repeat, follow
std::string told(const std::string& words) {
    using Purpose = LoadTracker::Purpose;
    using Failure = LoadTracker::Failure;
    LoadTracker tracker;
    std::string out;
    const auto say = [&](const std::string& text) {
        out += out.empty() || text.empty() ? text : " " + text;
    };
    // In the order in which the tracker lists them.
    const auto report = [&](LoadTracker::Report what) {
        constexpr std::array names = {"",     "start", "commit",    "finish", "form!",
                                      "-999", "error", "lateError", "?"};
        say(names.at(static_cast<std::size_t>(what)));
    };
    const auto policy = [&](LoadTracker::Policy what) {
        constexpr std::array names = {"ask", "", "ignore"};
        say(names.at(static_cast<std::size_t>(what)));
    };
    using Url = const std::string&;
    const std::map<std::string, std::function<void(Url)>> verbs = {
        {"request", [&](Url) { tracker.requested(); }},
        {"page", [&](Url url) { tracker.expect(url, Purpose::page); }},
        {"form", [&](Url url) { tracker.expect(url, Purpose::form); }},
        {"prelude", [&](Url url) { tracker.expect(url, Purpose::prelude); }},
        {"policy", [&](Url url) { policy(tracker.navigationAction(url, {})); }},
        {"resubmit",
         [&](Url url) { policy(tracker.navigationAction(url, {.resubmitsForm = true})); }},
        {"redirect", [&](Url url) { policy(tracker.navigationAction(url, {.isRedirect = true})); }},
        {"stop", [&](Url) { tracker.stopped(); }},
        {"start", [&](Url) { report(tracker.started()); }},
        {"commit", [&](Url url) { report(tracker.committed(url)); }},
        {"finish", [&](Url) { report(tracker.finished()); }},
        {"cancel", [&](Url) { report(tracker.failure(Failure::cancellation, false)); }},
        {"error", [&](Url) { report(tracker.failure(Failure::other, false)); }},
        {"repeat", [&](Url) { tracker.repeat(); }},
        {"giveUp", [&](Url) { tracker.givenUp(); }},
        {"follow", [&](Url) { say(tracker.takeUnexplained() ? "explained" : "plain"); }},
    };
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        const auto colon = std::min(word.find(':'), word.size());
        verbs.at(word.substr(0, colon))(word.substr(std::min(colon + 1, word.size())));
    }
    if (tracker.awaitsOwnPage())
        say("(ours to come)");
    return out;
}

TEST(LoadEvents, BelongToTheLoadThatWasAskedForLast) {
    const struct {
        const char *name, *events, *told;
    } cases[] = {
        {"two at once", "request page:a request page:b policy:a policy:b start commit:b finish",
         "ignore ask start commit finish"},
        {"replaced on its way",
         "request page:a policy:a start request page:b cancel finish policy:b start commit:b "
         "finish",
         "ask start -999 ask start commit finish"},
        {"the older one goes on for a while",
         "request page:a policy:a start request page:b commit:a finish policy:b start commit:b "
         "finish",
         "ask start ask start commit finish"},
        {"a page that navigates while ours is awaited",
         "request page:a policy:a start policy:b redirect:c commit:c policy:d",
         "ask start ignore ask commit ask"},
        {"stopped", "request page:a policy:a start stop cancel finish", "ask start -999"},
        {"the engine gives up", "request page:a policy:a start cancel finish giveUp follow",
         "ask start ? plain"},
        {"once more",
         "request page:a policy:a start cancel finish repeat page:a policy:a start error",
         "ask start ? error"},
        {"the page changes its mind",
         "request page:a policy:a start commit:a finish policy:b start cancel finish follow "
         "policy:c "
         "start commit:c finish",
         "ask start commit finish ask start ? explained ask start commit finish"},
        {"a form",
         "request prelude:o policy:o start commit:o finish form:a policy:a start commit:a "
         "finish",
         "form! ask start commit finish"},
        {"a form's second attempt",
         "request form:a policy:a start cancel finish resubmit:a start commit:a finish follow",
         "ask start ? commit finish plain"},
        {"a form replaced during its prelude",
         "request prelude:o policy:o start request page:b commit:o finish policy:b start commit:b "
         "finish",
         "ask start commit finish"},
    };
    for (const auto& tried : cases)
        EXPECT_EQ(told(tried.events), tried.told) << tried.name;
}

TEST(LoadEvents, CertificatesOfSeveralFaultsHaveOneCode) {
    const int early = G_TLS_CERTIFICATE_NOT_ACTIVATED, late = G_TLS_CERTIFICATE_EXPIRED,
              issuer = G_TLS_CERTIFICATE_UNKNOWN_CA, host = G_TLS_CERTIFICATE_BAD_IDENTITY;
    const struct {
        int faults;
        bool selfSigned;
        int code;
    } cases[] = {
        {early, false, -1204},         {early | late | issuer, false, -1204},
        {late | issuer, true, -1201},  {issuer, false, -1203},
        {issuer | host, false, -1203}, {issuer, true, -1202},
        {host, false, -1202},          {G_TLS_CERTIFICATE_REVOKED, false, -1202},
    };
    for (const auto& tried : cases)
        EXPECT_EQ(
            certificateErrorCode(static_cast<GTlsCertificateFlags>(tried.faults), tried.selfSigned),
            tried.code)
            << tried.faults;
}

TEST(PageHeadersSeal, OpensForItsSecretAlone) {
    const PageHeaders headers{.load = "7",
                              .fields = {{"X-Text", "t\u00e9xt; \"q\""}, {"X-Empty", ""}}};
    const std::string sealed = sealPageHeaders(headers, "secret");
    EXPECT_EQ(openPageHeaders(sealed, "secret"), headers);
    EXPECT_EQ(openPageHeaders(pageHeadersContentType(sealed), "secret"), headers);
    for (const char* secret : {"", "secre", "other", "secret."})
        EXPECT_EQ(openPageHeaders(sealed, secret), std::nullopt) << secret;
    for (const char* broken : {"", "secret", "secret.", "secret.%%%", "text/html"})
        EXPECT_EQ(openPageHeaders(broken, "secret"), std::nullopt) << broken;
    for (const char* name : {"", "X Y", "X:Y", "X\n", "\u00fc"})
        EXPECT_FALSE(isValidHeader(name, "v")) << name;
    for (const std::string& value : {std::string("a\nb"), std::string("a\r"), std::string(1, '\0')})
        EXPECT_FALSE(isValidHeader("X", value));
    EXPECT_TRUE(isValidHeader("X-Y_z", "any \t value"));
}

}  // namespace
}  // namespace quorl::test
