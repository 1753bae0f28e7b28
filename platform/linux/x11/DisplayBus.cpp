#include "DisplayBus.h"

#include "Handle.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace quorl {
namespace {

constexpr const char* property = "AT_SPI_BUS";
// In units of four bytes: longer than any address of a socket.
constexpr long longest = 256;

}  // namespace

std::string accessibilityBusOnDisplay(Display* display) {
    const Atom name = XInternAtom(display, property, True);
    if (name == None)
        return {};
    Atom type = None;
    int format = 0;
    unsigned long size = 0;
    unsigned long left = 0;
    unsigned char* bytes = nullptr;
    const int status = XGetWindowProperty(display, DefaultRootWindow(display), name, 0, longest,
                                          False, XA_STRING, &type, &format, &size, &left, &bytes);
    const Handle<unsigned char, XFree> owned(bytes);
    if (status != Success || type != XA_STRING || format != 8 || left > 0 || !bytes)
        return {};
    return {reinterpret_cast<const char*>(bytes), size};
}

}  // namespace quorl
