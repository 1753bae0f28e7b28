#pragma once

#include "Value.h"

namespace quorl {

/// The request that somebody waits for: what it asked, and whether its answer is still owed. There
/// is one at a time; whoever sent an earlier one is not answered any more.
class PendingRequest {
  public:
    PendingRequest() = default;
    ~PendingRequest() { forget(); }
    PendingRequest(const PendingRequest&) = delete;
    PendingRequest& operator=(const PendingRequest&) = delete;

    /// Takes the place of what was there before.
    void accept(Value parameters);
    /// Answered, or nobody waits any more. What it asked is wiped: it may hold a person's secrets.
    void forget();

    /// The request's dictionary; null when there is none.
    const Value& parameters() const { return parameters_; }
    bool isAnswerOwed() const { return isAnswerOwed_; }

  private:
    Value parameters_;
    bool isAnswerOwed_ = false;
};

}  // namespace quorl
