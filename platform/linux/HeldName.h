#pragma once

#include "Handle.h"

#include <optional>
#include <string>

namespace quorl {

/// What holds a bootstrap name: the lock that keeps others away from it, and the socket that
/// listens. A program that takes this one's place in the same process can go on with both, so that
/// a client that comes in between waits in the socket's queue and is not turned away.
struct HeldName {
    FileDescriptor lock;
    FileDescriptor listener;
};

/// Leaves both open for the next program. Gives the entry of its environment that tells it of them.
std::string bequeath(const HeldName& name);

/// The name of that path as the program before this one held it; nothing when there was none, or
/// when it is not that name any more. To be asked once.
std::optional<HeldName> inheritedName(const std::string& path);

/// Where the name's lock lies, and where its socket is made before it has its name.
std::string lockPath(const std::string& path);
std::string unreadyPath(const std::string& path);

}  // namespace quorl
