#pragma once

#include "AgentWindow.h"
#include "AttemptGuard.h"
#include "CodePrompts.h"
#include "HostChannel.h"
#include "LocalRecord.h"
#include "Person.h"
#include "SecondFactorPolicy.h"
#include "Texts.h"

#include <memory>
#include <optional>
#include <string>

namespace quorl {

/// One sign-in, from the start packet to the verdict and what follows it: the policy decides, this
/// carries it out and tells the journal.
class SignIn {
  public:
    SignIn(HostChannel& host, SignInStart start, const Clock& clock);

    /// Ends with the verdict sent, the journal written, limits and record brought up to date.
    void run();
    /// For the journal when the host goes before there is a verdict.
    void noteGone(std::string_view why) const;

  private:
    /// How an attempt by one way ended: by a verdict, or by the need to decide anew.
    enum class Step { done, decideAnew };

    void loadSettings();
    bool knowPerson();
    void chooseWay();
    HostChannel::SteadyTime windowEnd() const;
    std::optional<Decision> decideNow();
    Step carryOut(Decision decision);
    Step onlinePage();
    Step offlinePage();
    Step windowFailed(const AgentWindow::Answer& answer);
    void offlineCodes();
    bool codesAreOpen();
    void countAndGrant();

    void grant(std::string_view outcome, const std::string& reason);
    void ignore(std::string_view outcome, const std::string& reason, bool loud);
    /// The reason goes to the journal, the text to the person, by whichever way reaches them.
    struct Denial {
        std::string reason;
        std::string text;             ///< empty when the person knows already
        std::string identifier = {};  ///< of the text, for the agent's own tables
        bool maxTries = false;
    };
    void deny(const Denial& denial);
    void deny(const std::string& reason, std::string_view textKey, bool maxTries = false);
    void tell(const Denial& denial);
    void finish(verifier::Verdict verdict);
    void journal(std::string_view outcome, const std::string& reason, bool warning) const;

    HostChannel& host_;
    SignInStart start_;
    const Clock& clock_;
    Texts texts_;
    SecondFactorSettings settings_;
    bool probeFirst_ = true;
    std::string unreachableText_;
    Person person_;
    std::unique_ptr<AttemptGuard> guard_;
    std::string guardFault_;
    GuardState guardState_;
    std::unique_ptr<LocalRecord> record_;
    OfflineState offline_ = OfflineState::notEnrolled;
    Way way_ = Way::text;
    AgentWindow window_;
    std::unique_ptr<ServerProbe> probe_;
};

}  // namespace quorl
