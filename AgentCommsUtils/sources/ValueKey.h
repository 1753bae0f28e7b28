#pragma once

#include "HexKey.h"

#include <optional>

namespace quorl {

/// The key under which installer and server encrypt the agent's keys: the 64 hexadecimal digits of
/// `value.key` in the support directory where that file exists, else the built-in one. Nothing and
/// a log line when the file cannot be read or holds anything else: falling back to the built-in key
/// would quietly take an organisation's secret for another. The caller wipes the key.
std::optional<AesKey> valueKey();

/// Whether the key in use is the one that every development build has, and so no secret.
bool isDevelopmentValueKey();

}  // namespace quorl
