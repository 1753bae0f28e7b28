#include "LoadErrors.h"

#include <fmt/format.h>
#include <webkit2/webkit2.h>

namespace quorl {
namespace {

int ioErrorCode(int code) {
    switch (code) {
        case G_IO_ERROR_TIMED_OUT:
            return LoadErrorCode::timedOut;
        case G_IO_ERROR_CONNECTION_REFUSED:
        case G_IO_ERROR_HOST_UNREACHABLE:
        case G_IO_ERROR_NETWORK_UNREACHABLE:
            return LoadErrorCode::cannotConnectToHost;
        case G_IO_ERROR_HOST_NOT_FOUND:
            return LoadErrorCode::cannotFindHost;
        case G_IO_ERROR_PARTIAL_INPUT:
        case G_IO_ERROR_CONNECTION_CLOSED:
            return LoadErrorCode::networkConnectionLost;
        default:  // GLib's list is open
            return LoadErrorCode::unknown;
    }
}

const char* faultOf(int code) {
    switch (code) {
        case LoadErrorCode::serverCertificateHasBadDate:
            return "has expired";
        case LoadErrorCode::serverCertificateNotYetValid:
            return "is not yet valid";
        case LoadErrorCode::serverCertificateHasUnknownRoot:
            return "comes from an unknown issuer";
        case LoadErrorCode::serverCertificateUntrusted:
            return "is not trusted for this server";
        default:
            return "cannot be accepted";
    }
}

}  // namespace

bool isCancellation(const GError& error) {
    return g_error_matches(&error, WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED) ||
           g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
}

int loadErrorCode(const GError& error) {
    if (error.domain == G_IO_ERROR)
        return ioErrorCode(error.code);
    if (error.domain == G_RESOLVER_ERROR)
        return LoadErrorCode::cannotFindHost;
    if (error.domain == G_TLS_ERROR)
        return error.code == G_TLS_ERROR_EOF ? LoadErrorCode::networkConnectionLost
                                             : LoadErrorCode::secureConnectionFailed;
    // Nobody stopped it: the engine gave up waiting by itself.
    return isCancellation(error) ? LoadErrorCode::timedOut : LoadErrorCode::unknown;
}

int certificateErrorCode(GTlsCertificateFlags faults, bool selfSigned) {
    if (faults & G_TLS_CERTIFICATE_NOT_ACTIVATED)
        return LoadErrorCode::serverCertificateNotYetValid;
    if (faults & G_TLS_CERTIFICATE_EXPIRED)
        return LoadErrorCode::serverCertificateHasBadDate;
    if (faults & G_TLS_CERTIFICATE_UNKNOWN_CA)
        return selfSigned ? LoadErrorCode::serverCertificateUntrusted
                          : LoadErrorCode::serverCertificateHasUnknownRoot;
    return LoadErrorCode::serverCertificateUntrusted;
}

std::string certificateErrorDescription(int code, const std::string& url) {
    return fmt::format("The certificate of {} {}", url, faultOf(code));
}

}  // namespace quorl
