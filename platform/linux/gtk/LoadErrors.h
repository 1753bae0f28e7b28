#pragma once

#include "WebView.h"

#include <gio/gio.h>

#include <string>

namespace quorl {

/// The platform-independent codes of a failed load.
namespace LoadErrorCode {
constexpr int unknown = -1;
constexpr int cancelled = -999;
constexpr int timedOut = -1001;
constexpr int cannotFindHost = -1003;
constexpr int cannotConnectToHost = -1004;
constexpr int networkConnectionLost = -1005;
constexpr int secureConnectionFailed = -1200;
constexpr int serverCertificateHasBadDate = -1201;
constexpr int serverCertificateUntrusted = -1202;
constexpr int serverCertificateHasUnknownRoot = -1203;
constexpr int serverCertificateNotYetValid = -1204;
}  // namespace LoadErrorCode

/// True when the engine says that a load was cancelled, whoever did it.
bool isCancellation(const GError& error);

/// The code of an error that the engine reports for a load that nobody stopped.
int loadErrorCode(const GError& error);

/// The code of a refused certificate: faults of time before faults of trust before its names.
int certificateErrorCode(GTlsCertificateFlags faults, bool selfSigned);

/// What is wrong with a certificate, for the log.
std::string certificateErrorDescription(int code, const std::string& url);

}  // namespace quorl
