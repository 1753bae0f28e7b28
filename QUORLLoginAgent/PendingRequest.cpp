#include "PendingRequest.h"

#include "Wipe.h"

#include <utility>

namespace quorl {

void PendingRequest::accept(Value parameters) {
    forget();
    parameters_ = std::move(parameters);
    isAnswerOwed_ = true;
}

void PendingRequest::forget() {
    wipe(parameters_);
    isAnswerOwed_ = false;
}

}  // namespace quorl
