#pragma once

#include "WebView.h"

#include <gio/gio.h>

#include <string>

namespace quorl {

/// True when the engine says that a load was cancelled, whoever did it.
bool isCancellation(const GError& error);

/// The code of an error that the engine reports for a load that nobody stopped.
int loadErrorCode(const GError& error);

/// The code of a refused certificate: faults of time before faults of trust before its names.
int certificateErrorCode(GTlsCertificateFlags faults, bool selfSigned);

/// What is wrong with a certificate, for the log.
std::string certificateErrorDescription(int code, const std::string& url);

}  // namespace quorl
