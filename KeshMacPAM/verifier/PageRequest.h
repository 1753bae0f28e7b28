#pragma once

#include "Person.h"
#include "Value.h"
#include "VerifierProtocol.h"

#include <optional>
#include <string>

namespace quorl {

/// What the server's page is asked for with: who, where, and a number that no request had before.
struct PageRequest {
    Value dictionary;  ///< for the agent
    std::string nonce;
};

/// The request for the page of a sign-in, signed for its path with the agent's key; nothing when
/// that cannot be done.
std::optional<PageRequest> makePageRequest(const Person& person, const std::string& service,
                                           const std::string& page);

/// Whether a page's result is a success that counts: it must hold "KEY", since a window that is
/// only closed may be answered with success, too; a signed one must be what only the server can
/// have made for this request.
bool provesSuccess(const Value& result, const Person& person, const std::string& nonce,
                   verifier::KeyRule rule);

}  // namespace quorl
