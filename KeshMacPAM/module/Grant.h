#pragma once

#include <security/pam_modules.h>

namespace quorl::pam {

/// Keeps with the handle that this user has shown the second factor: a stack that comes past the
/// module twice asks once. It counts in this process alone, for a minute, so that a handle which a
/// host keeps opens no later sign-in.
void rememberGrant(pam_handle_t* pamh, const char* user);
bool isGrantRemembered(pam_handle_t* pamh, const char* user);

}  // namespace quorl::pam
