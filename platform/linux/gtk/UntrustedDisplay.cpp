#include "UntrustedDisplay.h"

#include "Handle.h"

#include <X11/Xauth.h>
#include <fcntl.h>
#include <gdk/gdkx.h>
#include <stdlib.h>
#include <unistd.h>

// Needs the X types above.
#include <X11/extensions/security.h>

#include <cstdint>
#include <string_view>

namespace quorl {
namespace {

using Authority = Handle<Xauth, XSecurityFreeXauth>;
using Hosts = Handle<XHostAddress, XFree>;

constexpr std::string_view method = "MIT-MAGIC-COOKIE-1";
constexpr const char* fileName = "untrusted-authority";

void append(std::string& record, std::string_view field) {
    record += static_cast<char>(field.size() >> 8);
    record += static_cast<char>(field.size() & 0xff);
    record += field;
}

// One entry of an Xauthority file: address family, address, display number, method and cookie, each
// with its length in two bytes, the greatest first. This one holds for any address and display.
std::string authorityRecord(const Xauth& authority) {
    std::string record = "\xff\xff";
    append(record, "");
    append(record, "");
    append(record, {authority.name, authority.name_length});
    append(record, {authority.data, authority.data_length});
    return record;
}

bool writeFile(const std::filesystem::path& path, std::string_view content) {
    const FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    return file && write(file.get(), content.data(), content.size()) ==
                       static_cast<ssize_t>(content.size());
}

}  // namespace

tl::expected<std::unique_ptr<UntrustedDisplay>, std::string> UntrustedDisplay::make(
    GdkDisplay* display, const std::filesystem::path& folder) {
    Display* xDisplay = GDK_DISPLAY_XDISPLAY(display);
    int major = 0;
    int minor = 0;
    if (!XSecurityQueryExtension(xDisplay, &major, &minor))
        return tl::unexpected(std::string("the X server has no SECURITY extension"));
    Authority wish(XSecurityAllocXauth());
    std::string name(method);
    wish->name = name.data();
    wish->name_length = static_cast<unsigned short>(name.size());
    XSecurityAuthorizationAttributes attributes{};
    attributes.timeout = 0;  // holds as long as nobody revokes it
    attributes.trust_level = XSecurityClientUntrusted;
    XSecurityAuthorization id = 0;
    gdk_x11_display_error_trap_push(display);
    const Authority made(XSecurityGenerateAuthorization(
        xDisplay, wish.get(), XSecurityTimeout | XSecurityTrustLevel, &attributes, &id));
    const bool refused = gdk_x11_display_error_trap_pop(display) != 0;
    wish->name = nullptr;
    if (refused || !made)
        return tl::unexpected(std::string("the X server makes no untrusted authority"));
    std::unique_ptr<UntrustedDisplay> untrusted(new UntrustedDisplay(display, id));
    const auto path = folder / fileName;
    if (!writeFile(path, authorityRecord(*made)))
        return tl::unexpected(path.string() + " cannot be written");
    setenv("XAUTHORITY", path.c_str(), 1);
    return untrusted;
}

UntrustedDisplay::~UntrustedDisplay() {
    gdk_x11_display_error_trap_push(display_);
    XSecurityRevokeAuthorization(GDK_DISPLAY_XDISPLAY(display_), authorization_);
    gdk_x11_display_error_trap_pop_ignored(display_);
}

bool displayIsOpen(GdkDisplay* display) {
    int count = 0;
    Bool enabled = False;
    const Hosts hosts(XListHosts(GDK_DISPLAY_XDISPLAY(display), &count, &enabled));
    return !enabled || count > 0;
}

}  // namespace quorl
