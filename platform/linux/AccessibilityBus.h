#pragma once

#include <sys/types.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quorl {

/// A Unix socket that a bus address names.
struct BusSocket {
    enum class Kind { file, abstract } kind;
    std::string name;
    bool operator==(const BusSocket&) const = default;
};

/// The socket of an address that is one single `unix:path=` or `unix:abstract=` (with a `guid` at
/// most beside it); nothing for any other, since an address may also name a program to be started
/// or a machine to be called. Percent-escapes are read as the bus's own libraries read them.
std::optional<BusSocket> soleBusSocket(std::string_view address);

/// Whether a bus listens there, as one of these accounts, and admits ours. Takes a second at most.
bool busAdmitsUs(const BusSocket& socket, std::span<const uid_t> listeners);

}  // namespace quorl
