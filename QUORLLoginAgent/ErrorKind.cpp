#include "ErrorKind.h"

#include "WebView.h"

namespace quorl {
namespace {

constexpr std::string_view unreachable = "IDS_SERVER_UNREACH";
constexpr std::string_view badCertificate = "IDS_SSL_CERTIFICATE_FAILED";

constexpr bool isCertificateError(int code) {
    return code >= LoadErrorCode::serverCertificateNotYetValid &&
           code <= LoadErrorCode::serverCertificateHasBadDate;
}

}  // namespace

ErrorWords errorWords(ErrorKind kind) {
    switch (kind) {
        case ErrorKind::unreachable:
            return {.message = unreachable,
                    .title = "IDS_ERROR_UNREACHABLE_TITLE",
                    .advice = "",
                    .retryHelps = true};
        case ErrorKind::timedOut:
            return {.message = unreachable,
                    .title = "IDS_ERROR_TIMEOUT_TITLE",
                    .advice = "IDS_ERROR_TIMEOUT_ADVICE",
                    .retryHelps = true};
        case ErrorKind::notConfigured:
            return {.message = unreachable,
                    .title = "IDS_ERROR_NOT_CONFIGURED_TITLE",
                    .advice = "IDS_ERROR_NOT_CONFIGURED_ADVICE"};
        case ErrorKind::certificate:
            return {.message = badCertificate,
                    .title = "IDS_ERROR_CERTIFICATE_TITLE",
                    .advice = "IDS_ERROR_CERTIFICATE_ADVICE",
                    .messageNamesHelp = true};
        case ErrorKind::foreignPage:
            return {.message = "",
                    .title = "IDS_ERROR_FOREIGN_TITLE",
                    .advice = "IDS_ERROR_FOREIGN_ADVICE",
                    .messageIsEnglish = true};
        case ErrorKind::pageDied:
            return {.message = "IDS_ERROR_PAGE_DIED",
                    .title = "IDS_ERROR_PAGE_DIED_TITLE",
                    .advice = "",
                    .retryHelps = true};
        case ErrorKind::limitReached:
            return {.message = "", .title = "IDS_ERROR_LIMIT_TITLE", .advice = ""};
        case ErrorKind::notEnrolled:
            return {.message = "",
                    .title = "IDS_ERROR_OTHER_TITLE",
                    .advice = "",
                    .messageNamesHelp = true};
        case ErrorKind::refused:
            return {.message = "", .title = "IDS_ERROR_OTHER_TITLE", .advice = ""};
        case ErrorKind::message:
            return {.message = "",
                    .title = "IDS_ERROR_OTHER_TITLE",
                    .advice = "IDS_ERROR_OTHER_ADVICE"};
    }
    return {};
}

ErrorKind errorKindOfLoad(int code) {
    if (isCertificateError(code))
        return ErrorKind::certificate;
    return code == LoadErrorCode::timedOut ? ErrorKind::timedOut : ErrorKind::unreachable;
}

ErrorKind errorKindOfText(std::string_view key) {
    if (key == unreachable || key == "IDS_MFA_ERROR_SERVER_UNREACH")
        return ErrorKind::unreachable;
    if (key == badCertificate)
        return ErrorKind::certificate;
    if (key == "IDS_MFA_ERROR_LIMIT_REACHED")
        return ErrorKind::limitReached;
    if (key == "IDS_MFA_ERROR_NOT_ENROLLED")
        return ErrorKind::notEnrolled;
    return ErrorKind::refused;
}

}  // namespace quorl
