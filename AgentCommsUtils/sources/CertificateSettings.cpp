#include "CertificateSettings.h"

#include "ConfigParser.h"
#include "Log.h"

namespace quorl {

CertificatePolicy callCertificatePolicy(const Value& config) {
    return isTrue(config, "RESTRICT_BADCERT") ? CertificatePolicy::restrict
                                              : CertificatePolicy::allowAny;
}

CertificatePolicy pageCertificatePolicy(const Value& config) {
    return isFalse(config, "RESTRICT_BADCERT") ? CertificatePolicy::allowAny
                                               : CertificatePolicy::restrict;
}

void warnOfUncheckedCertificates(const Value& config) {
    if (callCertificatePolicy(config) == CertificatePolicy::allowAny ||
        pageCertificatePolicy(config) == CertificatePolicy::allowAny)
        logLine(
            "RESTRICT_BADCERT is not \"true\" : the server is not checked, and whoever controls "
            "the "
            "network can sign in as anybody");
}

}  // namespace quorl
