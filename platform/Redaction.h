#pragma once

#include "Value.h"

#include <string>
#include <string_view>

namespace quorl {

/// The description of a request or result for the log, where what lets somebody sign in (form
/// data, headers, keys, tokens) is shown as its length: `POST_DATA = "<27 bytes>"`.
LogText redactedDescription(const Value& dictionary);

/// The length of a secret, as the log shows it in its place: "<64 bytes>".
std::string lengthOf(const Value& secret);

/// The address without its query and fragment, where codes and tokens stand: "?…" instead.
std::string redactedAddress(std::string_view url);

}  // namespace quorl
