#include "LoadErrors.h"
#include "LoadTracker.h"
#include "PageHeaders.h"

#include <gtest/gtest.h>
#include <webkit2/webkit2.h>

#include <sstream>

namespace quorl::test {
namespace {

// What the engine was seen to say, word by word, and what is made of it. Words:
// request, page:URL, form:URL, prelude:URL, policy:URL, resubmit:URL, refuse, refuseRedirect, stop,
// start, commit:URL, finish, cancel, 102, error, lateError, giveUp, repeat, follow
std::string told(const std::string& words) {
    using Report = LoadTracker::Report;
    using Failure = LoadTracker::Failure;
    LoadTracker tracker;
    std::string out;
    const auto say = [&](const std::string& text) { out += (out.empty() ? "" : " ") + text; };
    const auto report = [&](Report what) {
        switch (what) {
            case Report::nothing:
                break;
            case Report::started:
                say("start");
                break;
            case Report::committed:
                say("commit");
                break;
            case Report::finished:
                say("finish");
                break;
            case Report::preludeOver:
                say("form!");
                break;
            case Report::cancelled:
                say("-999");
                break;
            case Report::failed:
                say("error");
                break;
            case Report::failedAfterCommit:
                say("lateError");
                break;
            case Report::unexplained:
                say("?");
                break;
        }
    };
    const auto policy = [&](LoadTracker::Policy what) {
        switch (what) {
            case LoadTracker::Policy::ask:
                say("ask");
                break;
            case LoadTracker::Policy::allow:
                break;
            case LoadTracker::Policy::ignore:
                say("ignore");
                break;
        }
    };
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        const auto colon = word.find(':');
        const std::string verb = word.substr(0, colon);
        const std::string url = colon == std::string::npos ? "" : word.substr(colon + 1);
        if (verb == "request")
            tracker.requested();
        else if (verb == "page")
            tracker.expect(url, LoadTracker::Purpose::page);
        else if (verb == "form")
            tracker.expect(url, LoadTracker::Purpose::form);
        else if (verb == "prelude")
            tracker.expect(url, LoadTracker::Purpose::prelude);
        else if (verb == "policy")
            policy(tracker.navigationAction(url, false));
        else if (verb == "resubmit")
            policy(tracker.navigationAction(url, true));
        else if (verb == "refuse")
            tracker.refused(false);
        else if (verb == "refuseRedirect")
            tracker.refused(true);
        else if (verb == "stop")
            tracker.stopped();
        else if (verb == "start")
            report(tracker.started());
        else if (verb == "commit")
            report(tracker.committed(url));
        else if (verb == "finish")
            report(tracker.finished());
        else if (verb == "cancel")
            report(tracker.failure(Failure::cancellation, false));
        else if (verb == "102")
            report(tracker.failure(Failure::refusal, false));
        else if (verb == "error")
            report(tracker.failure(Failure::other, false));
        else if (verb == "lateError")
            report(tracker.failure(Failure::other, true));
        else if (verb == "repeat")
            tracker.repeat();
        else if (verb == "giveUp")
            tracker.givenUp();
        else if (verb == "follow")
            say(tracker.takeUnexplained() ? "explained" : "plain");
        else
            ADD_FAILURE() << "no such word: " << verb;
    }
    if (tracker.awaitsOwnPage())
        say("(ours to come)");
    return out;
}

TEST(LoadEvents, BelongToTheLoadThatWasAskedForLast) {
    struct Case {
        const char* name;
        const char* events;
        const char* told;
    };
    const std::string a = "request page:a policy:a start commit:a finish ";
    const Case cases[] = {
        {"a page", "request page:a policy:a start commit:a finish", "ask start commit finish"},
        {"until it commits", "request page:a policy:a start", "ask start (ours to come)"},
        {"two at once", "request page:a request page:b policy:a policy:b start commit:b finish",
         "ignore ask start commit finish"},
        {"the same twice", "request page:a request page:a policy:a policy:a start commit:a finish",
         "ignore ask start commit finish"},
        {"replaced on its way",
         "request page:a policy:a start request page:b cancel finish policy:b start commit:b "
         "finish",
         "ask start -999 ask start commit finish"},
        {"the older one goes on for a while",
         "request page:a policy:a start request page:b commit:a finish policy:b start commit:b "
         "finish",
         "ask start ask start commit finish"},
        {"fails", "request page:a policy:a start error finish", "ask start error"},
        {"fails late", "request page:a policy:a start commit:a lateError finish",
         "ask start commit lateError"},
        {"refused, another from inside",
         "request page:a policy:a stop request page:b refuse policy:b start commit:b finish",
         "ask ask start commit finish"},
        {"refused redirect", "request page:a policy:a start policy:b refuseRedirect 102 finish",
         "ask start ask -999"},
        {"a download of our own", "request page:a policy:a start 102 finish", "ask start error"},
        {"stopped", "request page:a policy:a start stop cancel finish", "ask start -999"},
        {"stopped before it starts", "request page:a stop policy:a", "ask"},
        {"a port that no page is served on",
         "request page:a policy:a start commit:about:blank finish", "ask start error"},
        {"a blank page that was asked for",
         "request page:about:blank policy:about:blank start commit:about:blank finish",
         "ask start commit finish"},
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
    for (const Case& tried : cases)
        EXPECT_EQ(told(tried.events), tried.told) << tried.name;
}

TEST(LoadEvents, ErrorsHaveOneCodeEach) {
    const auto code = [](GQuark domain, int number) {
        GError error{domain, number, nullptr};
        return loadErrorCode(error);
    };
    EXPECT_EQ(code(G_IO_ERROR, G_IO_ERROR_CONNECTION_REFUSED), -1004);
    EXPECT_EQ(code(G_IO_ERROR, G_IO_ERROR_TIMED_OUT), -1001);
    EXPECT_EQ(code(G_IO_ERROR, G_IO_ERROR_PARTIAL_INPUT), -1005);
    EXPECT_EQ(code(G_IO_ERROR, G_IO_ERROR_CONNECTION_CLOSED), -1005);
    EXPECT_EQ(code(G_IO_ERROR, G_IO_ERROR_FAILED), -1);
    EXPECT_EQ(code(G_RESOLVER_ERROR, G_RESOLVER_ERROR_TEMPORARY_FAILURE), -1003);
    EXPECT_EQ(code(G_TLS_ERROR, G_TLS_ERROR_MISC), -1200);
    EXPECT_EQ(code(G_TLS_ERROR, G_TLS_ERROR_EOF), -1005);
    EXPECT_EQ(code(WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED), -1001);
    EXPECT_EQ(code(WEBKIT_POLICY_ERROR, WEBKIT_POLICY_ERROR_CANNOT_SHOW_URI), -1);

    struct Case {
        int faults;
        bool selfSigned;
        int code;
    };
    const int early = G_TLS_CERTIFICATE_NOT_ACTIVATED, late = G_TLS_CERTIFICATE_EXPIRED,
              issuer = G_TLS_CERTIFICATE_UNKNOWN_CA, host = G_TLS_CERTIFICATE_BAD_IDENTITY;
    const Case cases[] = {
        {early, false, -1204},         {early | late | issuer, false, -1204},
        {late | issuer, true, -1201},  {issuer, false, -1203},
        {issuer | host, false, -1203}, {issuer, true, -1202},
        {host, false, -1202},          {G_TLS_CERTIFICATE_REVOKED, false, -1202},
    };
    for (const Case& tried : cases)
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
