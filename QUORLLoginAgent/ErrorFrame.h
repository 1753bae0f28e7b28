#pragma once

#include "ErrorKind.h"
#include "Resources.h"
#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// What the page around an error's message is told.
struct ErrorFrame {
    ErrorKind kind = ErrorKind::message;
    bool offersRetry = false;
    std::string localeId;  ///< the configured language, empty for the system's
    std::string help;      ///< the organisation's own words on whom to ask; may be empty
};

/// The words and links of the frame, in its language, as one object.
Value errorFrameWords(const ErrorFrame& frame, const Resources& resources);

/// The script that draws the frame into the blank page, hidden, with an empty place for the
/// message; nothing, and a log line, when one of its files is missing. Values go into it as JSON,
/// and into the page as text: markup in them stays text.
std::optional<std::string> errorFrameScript(const ErrorFrame& frame, const Resources& resources);

/// Shows the frame with the message in it, and gives its words.
inline constexpr const char* errorFrameShowScript = "showErrorFrame();";

}  // namespace quorl
