// `bench GROUP` prints the figures of a group, `bench --list` the groups' names.
#include "Figures.h"

int main(int argc, char** argv) try {
    using namespace quorl::bench;
    const std::map<std::string, void (*)()> groups = {
        {"archive", benchArchive}, {"https", benchHttps},     {"launch", benchLaunch},
        {"message", benchMessage}, {"offline", benchOffline}, {"pam", benchPam},
        {"store", benchStore},     {"totp", benchTotp},
    };
    const std::string wanted = argc == 2 ? argv[1] : "--list";
    if (wanted != "--list") {
        groups.at(wanted)();
        return 0;
    }
    for (const auto& [name, run] : groups)
        std::puts(name.c_str());
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 1;
}
