#pragma once

#include <sys/types.h>
#include <unistd.h>

/// Where the module finds what it reads and starts. Fixed when it is built: a login program's
/// environment belongs to whoever calls it. The tests build a copy that looks into folders of
/// theirs.
#ifndef KESH_HELPER
#error "KESH_HELPER, the path of the helper, comes from the build"
#endif
#ifndef KESH_OPTIONS_FILE
#define KESH_OPTIONS_FILE "/etc/security/pam_kesh.conf"
#endif
#ifndef KESH_PASSWD
#define KESH_PASSWD "/etc/passwd"
#endif
#ifndef KESH_SHADOW
#define KESH_SHADOW "/etc/shadow"
#endif
#ifndef KESH_BREAKGLASS
#define KESH_BREAKGLASS "/run/kesh/breakglass"
#endif

namespace quorl::pam {

/// The account that hosts run as and that the files above must belong to. In the tests' copy it is
/// whoever runs the tests.
inline uid_t rulingUid() {
#ifdef KESH_OF_ANYBODY
    return geteuid();
#else
    return 0;
#endif
}

}  // namespace quorl::pam
