#include "Environment.h"

#include <stdlib.h>

namespace quorl {
namespace {

struct Variable {
    const char* name;
    const char* value;
};

constexpr Variable settings[] = {
    {"GSETTINGS_BACKEND", "memory"},  // nobody's settings, and no settings service
    {"GIO_USE_VFS", "local"},         // no mounts of a session
    {"GTK_USE_PORTAL", "0"},
    // A login screen has no GPU worth sharing buffers with; software drawing starts faster.
    {"WEBKIT_DISABLE_DMABUF_RENDERER", "1"},
};

// Debugging doors of the libraries: an inspector over the network, an interactive one in the
// window, a web process without its sandbox.
constexpr const char* doors[] = {"WEBKIT_INSPECTOR_SERVER", "WEBKIT_INSPECTOR_HTTP_SERVER",
                                 "WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS", "GTK_DEBUG",
                                 "GTK_MODULES"};

}  // namespace

void prepareGtkEnvironment() {
    for (const Variable& variable : settings)
        setenv(variable.name, variable.value, 1);
    for (const char* door : doors)
        unsetenv(door);
    if (!getenv("DBUS_SESSION_BUS_ADDRESS")) {
        // Otherwise the libraries start a bus of their own, which outlives us.
        setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        setenv("NO_AT_BRIDGE", "1", 1);
    }
}

}  // namespace quorl
