#pragma once

#include "CertificatePolicy.h"
#include "Value.h"

namespace quorl {

/// The two readings of "RESTRICT_BADCERT". They differ for a value that is neither "true" nor
/// "false", and are meant to: what every installed agent does with such a value stays as it is.

/// Of the agent's own calls: certificates are restricted only when the setting is "true".
CertificatePolicy callCertificatePolicy(const Value& config);

/// Of the pages in the browser window: any certificate passes only when the setting is "false".
CertificatePolicy pageCertificatePolicy(const Value& config);

/// One log line where either reading lets any certificate pass: at each start and each sync.
void warnOfUncheckedCertificates(const Value& config);

}  // namespace quorl
