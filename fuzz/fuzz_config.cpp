// The configuration reader: any bytes give a value or a reason, and every key reads as a text.
#include "ConfigParser.h"
#include "PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = quorl::parsePropertyList({data, size});
    if (!value)
        return 0;
    for (const char* key : {"SERVERNAME", "ACCESS_KEY", "OFFLINE_MFA"}) {
        quorl::configText(*value, key);
        quorl::isTrue(*value, key);
    }
    quorl::description(*value);
    return 0;
}
