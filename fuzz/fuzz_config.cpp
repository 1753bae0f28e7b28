// The configuration reader: any bytes give a value or a reason, and every key reads as a text. What
// can be written again must be read again, as the same document.
#include "ConfigParser.h"
#include "PropertyList.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = quorl::parsePropertyList({data, size});
    if (!value)
        return 0;
    for (const char* key : {"SERVERNAME", "ACCESS_KEY", "OFFLINE_MFA"}) {
        quorl::configText(*value, key);
        quorl::isTrue(*value, key);
    }
    quorl::description(*value);
    const auto xml = quorl::xmlPropertyList(*value);
    if (!xml)
        return 0;
    const auto again = quorl::parsePropertyList(quorl::asBytes(*xml));
    if (!again || quorl::xmlPropertyList(*again) != xml)
        std::abort();
    return 0;
}
