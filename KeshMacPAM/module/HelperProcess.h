#pragma once

#include "Descriptor.h"
#include "VerifierProtocol.h"

namespace quorl::pam {

/// The helper of one attempt: a process of its own session, with nothing of the host's but what no
/// process can shed. It is nobody's child here, so the host neither sees nor has to reap it.
class HelperProcess {
  public:
    /// Starts the program with one end of a packet pair as its descriptor 3. Works whatever the
    /// host does with its signals, children, standard descriptors and other threads. Gives an errno
    /// value, 0 when it runs; a program that cannot be executed says so later, in a `startError`
    /// packet.
    int start(const char* program);

    /// Our end of the pair.
    int channel() const { return channel_.get(); }
    /// Readable once the helper has ended. The pair alone does not tell: a child that another
    /// thread of the host forked meanwhile holds the helper's end open.
    int ended() const { return pidfd_.get(); }
    /// Closes our end: before the verdict this ends the helper, after it the helper works on.
    void release() { channel_.reset(); }
    /// Ends a helper that no longer answers for itself.
    void end();

  private:
    Descriptor channel_;
    Descriptor pidfd_;
};

/// Why the program was not executed, when the packet says that; 0 for any other packet.
int startError(verifier::Received packet);

}  // namespace quorl::pam
