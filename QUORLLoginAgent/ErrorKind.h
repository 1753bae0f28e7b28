#pragma once

#include <string_view>

namespace quorl {

/// What an error page tells of.
enum class ErrorKind {
    unreachable,
    timedOut,
    notConfigured,
    certificate,
    foreignPage,
    pageDied,
    limitReached,
    notEnrolled,
    refused,  ///< a text of our tables that says all there is to say
    message,  ///< a text from outside
};

/// What stands around the message, as keys of the string tables; empty: nothing.
struct ErrorWords {
    std::string_view message;  ///< the kind's own, where it has one
    std::string_view title;
    std::string_view advice;
    bool retryHelps = false;
    bool messageNamesHelp = false;  ///< the message itself says whom to ask
    bool messageIsEnglish = false;  ///< in every language, so it comes last
};

ErrorWords errorWords(ErrorKind kind);

/// The kind of a load that failed with that code.
ErrorKind errorKindOfLoad(int code);

/// The kind of a text that a request names by its key.
ErrorKind errorKindOfText(std::string_view key);

}  // namespace quorl
