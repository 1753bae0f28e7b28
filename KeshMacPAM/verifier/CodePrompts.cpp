#include "CodePrompts.h"

#include "CryptoUtils.h"
#include "LoginPrograms.h"

#include <charconv>

namespace quorl {
namespace {

constexpr int mostFailures = 3;

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

CodePrompts::Result CodePrompts::run(LocalRecord::Owed owed) {
    FactorSteps steps(owed.factors, owed.methods.ids);
    while (!steps.done()) {
        if (steps.next() == FactorSteps::Next::choice)
            if (const auto ended = choose(owed.methods, steps))
                return *ended;
        const TOTPAuthenticator* authenticator = owed.methods.find(steps.current());
        if (!authenticator)
            return Result::noMethod;
        if (const auto ended = askCode(*authenticator, steps.current(), owed.notice))
            return *ended;
        steps.countVerified();
    }
    return Result::verified;
}

std::optional<CodePrompts::Result> CodePrompts::ask(const std::string& prompt, bool hidden,
                                                    std::string& typed) {
    HostReply reply = host_.ask(preface_ + prompt, hidden || replacesPrompts(start_.service));
    const WipeAtExit wiped(reply.text);
    preface_.clear();
    switch (reply.answer) {
        case verifier::Answer::Typed:
            typed = trimmed(reply.text);
            return std::nullopt;
        case verifier::Answer::Password:
            return Result::passwordTyped;
        case verifier::Answer::None:
            break;
    }
    return Result::conversationFailed;
}

std::optional<CodePrompts::Result> CodePrompts::choose(const OfflineMethods& methods,
                                                       FactorSteps& steps) {
    const std::vector<std::int64_t> ids = steps.choices();
    if (ids.empty())
        return Result::noMethod;
    std::string list = texts_.get("IDS_MFA_OFFLINE_HTML_T1") + "\n";
    for (std::size_t i = 0; i < ids.size(); ++i)
        list += std::to_string(i + 1) + "  " + harmless(methods.find(ids[i])->getAuthName()) + "\n";
    for (;;) {
        std::string typed;
        if (const auto ended = ask(list + texts_.get("IDS_KESH_PROMPT_NUMBER"), false, typed))
            return ended;
        if (HostChannel::SteadyTime::clock::now() > start_.end)
            return Result::tooLate;
        std::size_t number = 0;
        const auto [end, error] =
            std::from_chars(typed.data(), typed.data() + typed.size(), number);
        if (error == std::errc() && end == typed.data() + typed.size() && number >= 1 &&
            number <= ids.size()) {
            steps.choose(ids[number - 1]);
            return std::nullopt;
        }
        if (++failures_ == mostFailures)
            return Result::wrongTooOften;
    }
}

std::string CodePrompts::prompt(const TOTPAuthenticator& authenticator,
                                const LimitNotice& notice) const {
    const Texts::Replacements name = {{"NAME", authenticator.getAuthName()}};
    std::string text = texts_.get("IDS_KESH_PROMPT_CODE", name);
    if (notice.low)
        text += " (" + texts_.get(notice.labelKey) + ": " + std::to_string(notice.remaining) + ")";
    return text + ": ";
}

std::optional<CodePrompts::Result> CodePrompts::askCode(const TOTPAuthenticator& authenticator,
                                                        std::int64_t id,
                                                        const LimitNotice& notice) {
    for (;;) {
        std::string typed;
        const WipeAtExit wiped(typed);
        if (const auto ended = ask(prompt(authenticator, notice), !start_.echo, typed))
            return ended;
        const bool late = HostChannel::SteadyTime::clock::now() > start_.end;
        if (late && authenticator.matchedStep(typed))
            return Result::tooLate;
        switch (check(authenticator, id, typed)) {
            case Code::right:
                return std::nullopt;
            case Code::locked:
                return Result::locked;
            case Code::notWritten:
                return Result::notWritten;
            case Code::used:
                preface_ = texts_.get("IDS_KESH_CODE_USED") + " ";
                break;
            case Code::wrong:
                preface_ = texts_.get("IDS_MFA_OFFLINE_ERRORMSG_OTP") + " ";
                break;
        }
        if (late)
            return Result::tooLate;
        if (++failures_ == mostFailures)
            return Result::wrongTooOften;
    }
}

// Judged and written in one step: of two sign-ins at once only one may use a code, and neither may
// go on where the other one locked.
CodePrompts::Code CodePrompts::check(const TOTPAuthenticator& authenticator, std::int64_t id,
                                     const std::string& typed) {
    const auto step = authenticator.matchedStep(typed);
    Code code = Code::wrong;
    const auto written = guard_.change([&](GuardState& state, GuardState::Time now) {
        if (state.lockedFor(now) > GuardState::Seconds(0)) {
            code = Code::locked;
        } else if (!step) {
            state.noteWrong(now, 1);
            code = state.lockedFor(now) > GuardState::Seconds(0) ? Code::locked : Code::wrong;
        } else if (state.isUsed(id, *step)) {
            code = Code::used;
        } else {
            state.noteUsed(id, *step);
            code = Code::right;
        }
    });
    return written ? code : Code::notWritten;
}

}  // namespace quorl
