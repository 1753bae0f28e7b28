#pragma once

#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// What a page asks for with a message on the channel.
enum class PageMethod { buttonOK, buttonChoose, authorizationHeader, result };

/// The JSON object a page posted; null when the body is no JSON object, is larger than 1 MiB or is
/// nested deeper than 32 levels, none of which an answer of ours can be made of.
Value parsePageMessage(const std::optional<std::string>& body);

/// Which action the message's "METHOD" names; anything else, or none, is a result.
PageMethod pageMethod(const Value& message);

/// The text form of "PASSCODE": a text as typed, a number in decimal; nothing when it is absent.
std::optional<std::string> passcode(const Value& message);

/// A page's final word, with the defaults laid in.
struct PageResult {
    Value response;            ///< the dictionary that the requester gets: three keys
    std::string errorMessage;  ///< to show instead of returning a failure; empty for none
    bool verified = false;     ///< "MFA_AUTH_RESULT" is the text "SUCCESS"
};
PageResult pageResult(const Value& message);

}  // namespace quorl
