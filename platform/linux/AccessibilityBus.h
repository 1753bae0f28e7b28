#pragma once

#include "Handle.h"

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

/// A bus that has admitted our account and waits for the word to begin.
struct AdmittingBus {
    FileDescriptor socket;
    std::string guid;
};

/// The bus that listens there, as one of these accounts, if it admits ours. Takes a few seconds at
/// most.
std::optional<AdmittingBus> admittedBy(const BusSocket& socket, std::span<const uid_t> listeners);

}  // namespace quorl
