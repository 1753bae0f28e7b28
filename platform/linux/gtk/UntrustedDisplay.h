#pragma once

#include <gdk/gdk.h>
#include <tl/expected.hpp>

#include <filesystem>
#include <memory>
#include <string>

namespace quorl {

/// What the processes that are started from now on may do on the display: they show windows, but no
/// key typed at another client, no picture and no window of another client reaches them (SECURITY
/// extension). Our own connection, opened before, stays trusted. While it lives XAUTHORITY names
/// its file; it is revoked at the end.
class UntrustedDisplay {
  public:
    /// Writes the authority into the folder, which must be ours alone. The reason when the display
    /// has no untrusted clients.
    static tl::expected<std::unique_ptr<UntrustedDisplay>, std::string> make(
        GdkDisplay* display, const std::filesystem::path& folder);
    ~UntrustedDisplay();
    UntrustedDisplay(const UntrustedDisplay&) = delete;
    UntrustedDisplay& operator=(const UntrustedDisplay&) = delete;

  private:
    UntrustedDisplay(GdkDisplay* display, unsigned long authorization)
        : display_(display), authorization_(authorization) {}

    GdkDisplay* display_;
    unsigned long authorization_;
};

/// Whether the display lets local programs in that name no authority; an untrusted one then holds
/// nobody back.
bool displayIsOpen(GdkDisplay* display);

}  // namespace quorl
