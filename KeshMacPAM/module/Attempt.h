#pragma once

#include "Conversation.h"
#include "HelperProcess.h"
#include "TimeLimit.h"

#include <optional>

namespace quorl::pam {

/// How an attempt ended. Without a verdict there is a reason for the journal.
struct Outcome {
    std::optional<verifier::Verdict> verdict;
    const char* reason = nullptr;
    int error = 0;            ///< errno value that belongs to the reason, or 0
    bool late = false;        ///< the time ran out
    bool speechless = false;  ///< the conversation failed: nothing more can be asked
};

/// Plays one attempt: between the helper, which decides, and the host's conversation.
class Attempt {
  public:
    Attempt(HelperProcess& helper, const Conversation& conversation, Milliseconds limit)
        : helper_(helper), conversation_(conversation), end_(sinceBoot() + limit) {}

    /// Sends the start and carries texts and answers until the verdict, or until the helper shows
    /// that none can be had from it: it ended, kept still, spoke nonsense, ran out of time.
    Outcome play(const verifier::Start& start);

  private:
    enum class Wake { Packet, Ended, Silent, Late, Failed };

    Wake wait() const;
    std::optional<Outcome> take(verifier::Received packet);
    std::optional<Outcome> ask(const verifier::Ask& ask);
    bool send(const verifier::Packet& packet) const;

    HelperProcess& helper_;
    const Conversation& conversation_;
    Milliseconds end_;
    Milliseconds lastHeard_ = sinceBoot();
    bool late_ = false;
};

}  // namespace quorl::pam
