#include "ModuleGate.h"

#include "Log.h"

#include <dlfcn.h>
#include <gmodule.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace {

using OpenModule = GModule* (*)(const gchar*, GModuleFlags);

constexpr std::string_view systemLibraries = "/usr/lib/";

// Links are followed first; a name without a folder would be searched for. The toolkit may leave
// the ending out.
std::filesystem::path resolved(const std::string& name) {
    std::error_code error;
    for (const char* ending : {"", ".so"}) {
        auto path = std::filesystem::canonical(name + ending, error);
        if (!error)
            return path;
    }
    return {};
}

}  // namespace

extern "C" __attribute__((visibility("default"))) GModule* g_module_open(const gchar* name,
                                                                         GModuleFlags flags) {
    static const auto open = reinterpret_cast<OpenModule>(dlsym(RTLD_NEXT, "g_module_open"));
    if (!name)
        return open(name, flags);
    const auto path = resolved(name);
    if (path.native().starts_with(systemLibraries))
        return open(path.c_str(), flags);
    quorl::logLine("ModuleGate : library refused: {}", std::string(name));
    return nullptr;
}

namespace quorl {

bool moduleGateHolds() {
    return dlsym(RTLD_DEFAULT, "g_module_open") == reinterpret_cast<void*>(&g_module_open);
}

}  // namespace quorl
