// Whatever the packet reader takes must be the one way to write that message.
#include "PacketCodec.h"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const quorl::ByteView packet(data, size);
    const auto message = quorl::decodePacket(packet);
    if (!message)
        return 0;
    const auto written = quorl::encodePacket(message->msgid, message->components);
    if (!written || !std::ranges::equal(*written, packet))
        std::abort();
    return 0;
}
