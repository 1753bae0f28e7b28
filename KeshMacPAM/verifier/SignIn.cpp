#include "SignIn.h"

#include "ConfigParser.h"
#include "Journal.h"
#include "LoginPrograms.h"
#include "OfflineDataHandler.h"
#include "OfflineDataJSONManipulator.h"
#include "PageRequest.h"
#include "SystemPaths.h"

#include <unistd.h>

namespace quorl {
namespace {

using SteadyClock = std::chrono::steady_clock;

// A page that was shown for less cannot have been tried.
constexpr std::chrono::seconds shortestTry{3};
// The agent's answer does not tell a wrong code from a page that was closed.
constexpr int codesOfAFailedPage = 2;
constexpr std::chrono::seconds longestSync{60};

}  // namespace

SignIn::SignIn(HostChannel& host, SignInStart start, const Clock& clock)
    : host_(host),
      start_(std::move(start)),
      clock_(clock),
      texts_(configText(getProductConfig(getConfigFilePath()), "LOCALE_ID")),
      window_(host, agentAddress(), systemPaths().guardDir + "/window") {}

void SignIn::loadSettings() {
    const Value& config = getProductConfig(getConfigFilePath());
    settings_ = {.state = productConfigState(),
                 .secondFactorOn = isTrue(config, "LOGIN_MFA"),
                 .bypassWhenUnreachable = isTrue(config, "BYPASS_MFA_SERVERUNREACH"),
                 .enforced = isTrue(config, "IS_MFA_ENFORCED")};
    probeFirst_ = !isFalse(config, "PREAUTH_CHECK_REQUIRED");
    unreachableText_ = configText(config, "SERVER_UNREACH_MSG");
}

void SignIn::run() {
    loadSettings();
    chooseWay();
    // A machine that was never set up, or whose second factor is off, needs no person.
    if (const auto decision = decideWithoutServer(settings_, offline_, way_);
        decision && (settings_.state != ConfigState::whole || !settings_.secondFactorOn)) {
        carryOut(*decision);
        return;
    }
    // A page is never chosen without the server's state, which takes longer to know than the
    // person.
    if (way_ == Way::window)
        probe_ = std::make_unique<ServerProbe>();
    if (!knowPerson()) {
        deny("no such user", "IDS_KESH_NOT_VERIFIED");
        return;
    }
    for (;;) {
        const auto decision = decideNow();
        if (!decision) {
            deny("the time is up", "IDS_KESH_TIME_UP");
            return;
        }
        if (carryOut(*decision) == Step::done)
            return;
    }
}

bool SignIn::knowPerson() {
    host_.alive();
    const OfflineDataJSONManipulator store(getUserOfflineDataFilePath());
    auto person = findPerson(start_.user, store.allMainKeys());
    if (!person)
        return false;
    person_ = std::move(*person);
    guard_ = std::make_unique<AttemptGuard>(systemPaths().guardDir, person_.uid, clock_);
    auto limitTime = guard_->now();
    if (const auto state = guard_->see()) {
        guardState_ = *state;
        limitTime = guardState_.limitTime(guard_->now());
    } else {
        guardFault_ = state.error();
    }
    record_ = std::make_unique<LocalRecord>(person_.record(),
                                            store.retrieveDataForKey(person_.record()), clock_);
    offline_ = record_->state(limitTime);
    return true;
}

void SignIn::chooseWay() {
    switch (start_.mode) {
        case verifier::Mode::Window:
            way_ = Way::window;
            return;
        case verifier::Mode::Text:
            way_ = Way::text;
            return;
        case verifier::Mode::Auto:
            way_ =
                showsAgentWindow(start_.service) && window_.agentLives() ? Way::window : Way::text;
            return;
    }
}

// A little before the module's own end, so that the person gets our reason and not its.
HostChannel::SteadyTime SignIn::windowEnd() const {
    return start_.end - std::chrono::seconds(1);
}

// Nothing when the time was up before the server's state was known.
std::optional<Decision> SignIn::decideNow() {
    if (const auto decision = decideWithoutServer(settings_, offline_, way_))
        return decision;
    host_.alive();
    if (!probe_)
        probe_ = std::make_unique<ServerProbe>();
    if (way_ == Way::window && !probeFirst_ && !probe_->state())
        return Decision::onlinePage;
    while (!probe_->state())
        if (host_.waitFor(probe_->descriptor(), -1, start_.end) == HostChannel::Wait::timeUp)
            return std::nullopt;
    return decide(settings_, offline_, way_, *probe_->state());
}

SignIn::Step SignIn::carryOut(Decision decision) {
    switch (decision) {
        case Decision::ignoreNeverSetUp:
            ignore("ignored", "no configuration: the second factor was never set up", true);
            return Step::done;
        case Decision::ignoreSwitchedOff:
            ignore("ignored", "the second factor is switched off", false);
            return Step::done;
        case Decision::ignoreUnreachable:
            host_.say(texts_.get("IDS_KESH_BYPASSED"), false);
            ignore("bypassed", "the server cannot be reached", true);
            return Step::done;
        case Decision::onlinePage:
            return onlinePage();
        case Decision::offlinePage:
            return offlinePage();
        case Decision::offlineCodes:
            offlineCodes();
            return Step::done;
        case Decision::denyDamaged:
            deny("the configuration is damaged or cannot be read", "IDS_KESH_DAMAGED");
            return Step::done;
        case Decision::denyFirstAtLoginScreen:
            deny("no usable record in a text service", "IDS_KESH_LOGIN_SCREEN_FIRST");
            return Step::done;
        case Decision::denyLimitReached:
            deny("the offline limit is reached", "IDS_MFA_ERROR_LIMIT_REACHED", true);
            return Step::done;
        case Decision::denyUnreachable:
            if (!unreachableText_.empty())
                deny({.reason = "the server cannot be reached", .text = unreachableText_});
            else
                deny("the server cannot be reached", "IDS_MFA_ERROR_SERVER_UNREACH");
            return Step::done;
        case Decision::denyUnreachableEnforced:
            deny("the server cannot be reached, and the second factor is enforced",
                 offline_ == OfflineState::switchedOff ? "IDS_MFA_ERROR_OFFLINE_DISABLED"
                                                       : "IDS_MFA_ERROR_SERVER_UNREACH");
            return Step::done;
        case Decision::denyCertificate:
            deny("the server's certificate is not trusted", "IDS_SSL_CERTIFICATE_FAILED");
            return Step::done;
    }
    return Step::done;
}

SignIn::Step SignIn::onlinePage() {
    const auto request = makePageRequest(person_, start_.service, start_.page);
    if (!request) {
        deny("the page request cannot be signed", "IDS_KESH_DAMAGED");
        return Step::done;
    }
    const auto answer = window_.show(request->dictionary, windowEnd(), probe_.get());
    if (answer.end != AgentWindow::End::answered)
        return windowFailed(answer);
    if (!provesSuccess(answer.result, person_, request->nonce, start_.key)) {
        const bool claims = stringValue(answer.result, "MFA_AUTH_RESULT") == "SUCCESS";
        if (claims)
            deny("a success that the server did not prove", "IDS_KESH_NOT_VERIFIED");
        else
            deny({.reason = "the page answered with no success", .text = ""});
        return Step::done;
    }
    grant("granted", "the server's page");
    // The server has just accepted a signature that holds this machine's time.
    guard_->change([](GuardState& state, GuardState::Time now) {
        state.trustClock(now);
        state.noteSuccess();
    });
    record_->startAnew(
        stringValue(answer.result, "OFFLINE_ENROLLMENT_DATA_ACCESS_TOKEN").value_or(""));
    return Step::done;
}

SignIn::Step SignIn::windowFailed(const AgentWindow::Answer& answer) {
    switch (answer.end) {
        case AgentWindow::End::interrupted:
            return Step::decideAnew;
        case AgentWindow::End::busy:
            way_ = Way::text;
            deny("another sign-in has the window", "IDS_KESH_WINDOW_BUSY");
            return Step::done;
        case AgentWindow::End::timeUp:
            deny("the time is up", "IDS_KESH_TIME_UP");
            return Step::done;
        case AgentWindow::End::noAgent:
        case AgentWindow::End::answered:
            break;
    }
    journal("no window", answer.reason, true);
    way_ = Way::text;
    if (start_.mode == verifier::Mode::Auto)
        return Step::decideAnew;
    deny("the agent's window cannot be had", "IDS_KESH_NO_WINDOW");
    return Step::done;
}

// Whether codes may be checked at all; denies where not.
bool SignIn::codesAreOpen() {
    if (!guardFault_.empty()) {
        deny("the guard cannot remember codes: " + guardFault_, "IDS_KESH_NOT_WRITTEN");
        return false;
    }
    const auto locked = guardState_.lockedFor(guard_->now());
    if (locked == GuardState::Seconds(0))
        return true;
    const auto minutes = std::chrono::ceil<std::chrono::minutes>(locked).count();
    deny({.reason = "locked after wrong codes",
          .text = texts_.get("IDS_KESH_LOCKED", {{"MINUTES", std::to_string(minutes)}}),
          .maxTries = true});
    return false;
}

SignIn::Step SignIn::offlinePage() {
    if (!codesAreOpen())
        return Step::done;
    const auto answer = window_.show(
        {{"OFFLINE_MFA", true}, {"USER_NAME", person_.name}, {"DOMAIN_NAME", person_.domain}},
        start_.end);
    if (answer.end != AgentWindow::End::answered)
        return windowFailed(answer);
    if (stringValue(answer.result, "MFA_AUTH_RESULT") != "SUCCESS") {
        if (answer.shown > shortestTry)
            guard_->change([](GuardState& state, GuardState::Time now) {
                state.noteWrong(now, codesOfAFailedPage);
            });
        deny({.reason = "the offline page answered with no success", .text = ""});
        return Step::done;
    }
    // Which codes were typed is not said, so all that could have been are used.
    const auto owed = record_->owed(guard_->now());
    const auto written = guard_->change([&](GuardState& state, GuardState::Time) {
        if (owed)
            for (const auto& [id, authenticator] : owed->methods.authenticators)
                state.noteUsed(id, authenticator.lastAcceptableStep());
    });
    if (!owed || !written)
        deny("the use of an offline sign-in cannot be written", "IDS_KESH_NOT_WRITTEN");
    else
        countAndGrant();
    return Step::done;
}

void SignIn::offlineCodes() {
    if (!codesAreOpen())
        return;
    auto owed = record_->owed(guardState_.limitTime(guard_->now()));
    const auto result = owed ? CodePrompts(host_, *guard_, texts_, start_).run(std::move(*owed))
                             : CodePrompts::Result::noMethod;
    using enum CodePrompts::Result;
    switch (result) {
        case verified:
            countAndGrant();
            return;
        case wrongTooOften:
            deny("three wrong answers", "IDS_KESH_WRONG_TOO_OFTEN");
            return;
        case tooLate:
            deny("too late", "IDS_KESH_TOO_LATE");
            return;
        case locked:
            // Looked at again: the lock may be another sign-in's.
            if (const auto state = guard_->see())
                guardState_ = *state;
            if (codesAreOpen())
                deny("locked after wrong codes", "IDS_KESH_WRONG_TOO_OFTEN", true);
            return;
        case notWritten:
            deny("the guard cannot remember codes", "IDS_KESH_NOT_WRITTEN");
            return;
        case passwordTyped:
            deny("the password was given in the place of a code", "IDS_KESH_PASSWORD_TYPED");
            return;
        case conversationFailed:
            deny({.reason = "the conversation failed", .text = ""});
            return;
        case noMethod:
            deny("the record has no method that can be asked for", "IDS_MFA_ERROR_NOT_ENROLLED");
            return;
    }
}

void SignIn::countAndGrant() {
    switch (record_->count()) {
        case CountResult::counted:
            break;
        case CountResult::limitReached:
            deny("the offline limit is reached", "IDS_MFA_ERROR_LIMIT_REACHED", true);
            return;
        case CountResult::noOfflineData:
        case CountResult::notWritten:
        case CountResult::offlineMFADisabled:
            deny("the use of an offline sign-in cannot be written", "IDS_KESH_NOT_WRITTEN");
            return;
    }
    guard_->change([](GuardState& state, GuardState::Time) { state.noteSuccess(); });
    grant("granted", "one-time codes without the server");
}

void SignIn::grant(std::string_view outcome, const std::string& reason) {
    journal(outcome, reason, false);
    finish(verifier::Verdict::Granted);
}

void SignIn::ignore(std::string_view outcome, const std::string& reason, bool loud) {
    journal(outcome, reason, loud);
    finish(verifier::Verdict::Ignore);
}

void SignIn::deny(const std::string& reason, std::string_view textKey, bool maxTries) {
    // The agent's own tables hold its own identifiers.
    const bool known = textKey.starts_with("IDS_MFA_ERROR_");
    deny({.reason = reason,
          .text = texts_.get(textKey),
          .identifier = known ? std::string(textKey) : "",
          .maxTries = maxTries});
}

void SignIn::deny(const Denial& denial) {
    journal("denied", denial.reason, true);
    if (!denial.text.empty())
        tell(denial);
    finish(denial.maxTries ? verifier::Verdict::DeniedMaxTries : verifier::Verdict::Denied);
}

void SignIn::tell(const Denial& denial) {
    constexpr std::chrono::seconds longestLook{30};
    if (way_ == Way::window && SteadyClock::now() < windowEnd()) {
        const Value request = denial.identifier.empty()
                                  ? Value{{"ERROR_MSG", denial.text}}
                                  : Value{{"MFA_ERROR_MSG", denial.identifier}};
        const auto shown =
            window_.show(request, std::min(windowEnd(), SteadyClock::now() + longestLook));
        if (shown.end == AgentWindow::End::answered || shown.end == AgentWindow::End::timeUp)
            return;
    }
    if (showsErrorTexts(start_.service))
        host_.say(denial.text, true);
    else
        host_.ask(denial.text + " " + texts_.get("IDS_KESH_PRESS_RETURN"), true);
}

void SignIn::finish(verifier::Verdict verdict) {
    // What follows a verdict is done in the helper's own time, and not for ever.
    alarm(static_cast<unsigned>(longestSync.count()));
    host_.verdict(verdict);
}

void SignIn::journal(std::string_view outcome, const std::string& reason, bool warning) const {
    writeJournal({.user = start_.user,
                  .service = start_.service,
                  .way = way_ == Way::window ? "window" : "text",
                  .outcome = outcome,
                  .reason = reason,
                  .warning = warning});
}

void SignIn::noteGone(std::string_view why) const {
    journal("denied", std::string(why), false);
}

}  // namespace quorl
