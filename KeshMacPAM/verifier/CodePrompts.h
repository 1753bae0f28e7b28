#pragma once

#include "AttemptGuard.h"
#include "HostChannel.h"
#include "LocalRecord.h"
#include "Texts.h"

#include <string>

namespace quorl {

/// Asks for one-time codes in the conversation: one prompt a code, with everything in it that the
/// person must know, since programs hold other texts back.
class CodePrompts {
  public:
    enum class Result {
        verified,
        wrongTooOften,
        tooLate,  ///< right or wrong: the time was up when the answer came
        locked,
        notWritten,     ///< the guard cannot remember, so nothing is checked
        passwordTyped,  ///< a program put its own prompt in the place of ours
        conversationFailed,
        noMethod,
    };

    CodePrompts(HostChannel& host, AttemptGuard& guard, const Texts& texts,
                const SignInStart& start)
        : host_(host), guard_(guard), texts_(texts), start_(start) {}

    Result run(LocalRecord::Owed owed);

  private:
    enum class Code { right, wrong, used, locked, notWritten };

    std::optional<Result> choose(const OfflineMethods& methods, FactorSteps& steps);
    std::optional<Result> askCode(const TOTPAuthenticator& authenticator, std::int64_t id,
                                  const LimitNotice& notice);
    std::optional<Result> ask(const std::string& prompt, bool hidden, std::string& typed);
    Code check(const TOTPAuthenticator& authenticator, std::int64_t id, const std::string& typed);
    std::string prompt(const TOTPAuthenticator& authenticator, const LimitNotice& notice) const;

    HostChannel& host_;
    AttemptGuard& guard_;
    const Texts& texts_;
    const SignInStart& start_;
    std::string preface_;  ///< what the next prompt says of the answer before it
    int failures_ = 0;
};

}  // namespace quorl
