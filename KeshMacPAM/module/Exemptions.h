#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string_view>

namespace quorl::pam {

/// An account as the machine's own files know it.
struct LocalAccount {
    uid_t uid = 0;
    bool hasHash = false;  ///< a password that the machine itself verifies
};

struct AccountFiles {
    const char* passwd;
    const char* shadow;
};

/// The account of that very name in the machine's own files; nothing for any other.
std::optional<LocalAccount> localAccount(std::string_view user, AccountFiles files);

/// When the running break-glass ends: the file holds the seconds since 1970 and belongs to root
/// alone. Nothing when there is none, or none that root made, or when it has ended.
std::optional<std::chrono::seconds> breakGlass(const char* path, std::chrono::seconds now);

/// Whether a name can be an account's: 1 to 256 bytes of UTF-8 without control characters and '/'.
bool plausibleName(std::string_view user);

}  // namespace quorl::pam
