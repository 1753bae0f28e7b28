#pragma once

#include "Resources.h"

#include <string>
#include <string_view>

namespace quorl {

/// Text of the key in the named language ("de"), else the nearest wider one that there is ("pt" for
/// "pt-BR"), else in the system's; English where that table lacks it, the key itself where English
/// does.
std::string getLocalizedString(std::string_view key, std::string_view localeId,
                               const Resources& resources = mainBundle());

/// Text of the key in the system's preferred language (LC_ALL, LC_MESSAGES, LANG), else English,
/// else the key itself: a window that is to explain something is never empty.
std::string getNSLocalizedString(std::string_view key, const Resources& resources = mainBundle());

/// Name of the table that serves the locale ("pt" for "pt-BR"), by the same rules; "en" where none
/// does.
std::string localizationName(std::string_view localeId, const Resources& resources = mainBundle());

/// Whether the language of that name is written from right to left.
bool runsRightToLeft(const std::string& language);

}  // namespace quorl
