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
    // Neither a neighbour on the display nor the starter chooses files that the toolkit reads.
    {"GTK_THEME", "Adwaita"},
    // Without an address the libraries start a bus of their own, which outlives us. One with a path
    // is worse than none: the engine opens that path's folder to its sandbox.
    {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
    // A login screen has no GPU worth sharing buffers with; software drawing starts faster.
    {"WEBKIT_DISABLE_DMABUF_RENDERER", "1"},
    // Nothing of ours is drawn by OpenGL, and loading a driver for it takes half of the start.
    {"GDK_GL", "disable"},
    // Pages run without machine code of their own making, which costs a sign-in a few milliseconds
    // and attackers of browsers their best tool.
    {"JSC_useJIT", "0"},
};

// Debugging doors of the libraries (an inspector over the network, an interactive one in the
// window, a web process without its sandbox), and folders that libraries would be loaded from.
constexpr const char* doors[] = {"WEBKIT_INSPECTOR_SERVER",
                                 "WEBKIT_INSPECTOR_HTTP_SERVER",
                                 "WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS",
                                 "GTK_DEBUG",
                                 "GTK_MODULES",
                                 "GTK_PATH",
                                 "GTK_EXE_PREFIX",
                                 "GTK_IM_MODULE_FILE",
                                 "GDK_PIXBUF_MODULE_FILE",
                                 "GIO_EXTRA_MODULES",
                                 "GIO_MODULE_DIR"};

}  // namespace

void prepareGtkEnvironment() {
    for (const Variable& variable : settings)
        setenv(variable.name, variable.value, 1);
    for (const char* door : doors)
        unsetenv(door);
}

}  // namespace quorl
