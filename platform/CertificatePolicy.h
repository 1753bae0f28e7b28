#pragma once

namespace quorl {

/// What is done about a server certificate that the machine does not trust.
enum class CertificatePolicy { restrict, allowAny };

}  // namespace quorl
