#pragma once

#include "Value.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace quorl {

/// The offline page's own scripts and pieces of HTML. Texts go in as they stand: none may hold a
/// double quote in the timer script, nor a single quote in a row.

/// Counts the session down once a second and shows the expired view, with its two lines, when the
/// time is up.
std::string timerScript(std::int64_t minutes, std::string_view line1, std::string_view line2);

/// Shows the number of the limit notice in the warning colour; follows the timer script.
std::string limitWarningScript();

/// Puts the cursor into the code field, which takes that many digits.
std::string focusScript(std::int64_t digits);

/// One method of the choose view. The first is selected and has the focus.
enum class RowPlace { first, later };
std::string chooseRow(std::string_view name, std::int64_t authId, RowPlace place);

/// Hands the page its static texts, by key.
std::string staticTextsScript(const Value& texts);

/// Tells the page whom to ask when the time is up.
std::string helpScript(std::string_view label, std::string_view text);

/// The text with every occurrence of the placeholder replaced.
std::string replaceAll(std::string text, std::string_view placeholder, std::string_view value);

}  // namespace quorl
