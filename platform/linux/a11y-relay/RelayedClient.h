#pragma once

#include "BusHandshake.h"
#include "Handle.h"

#include <poll.h>

#include <string>

namespace quorl {

/// A client whose words go to the bus and back, once it has said the words that come before them.
class RelayedClient {
  public:
    /// Both sockets do not wait; the bus has admitted us already.
    RelayedClient(FileDescriptor client, FileDescriptor bus, std::string guid);

    /// What to wait for: the client's socket, then the bus's.
    pollfd clientEntry() const;
    pollfd busEntry() const;
    /// Moves what can be moved; false when it is over.
    bool serve(short clientEvents, short busEvents);

  private:
    bool readClient();

    FileDescriptor client_;
    FileDescriptor bus_;
    BusHandshake handshake_;
    bool begun_ = false;
    std::string toBus_;
    std::string toClient_;
};

}  // namespace quorl
