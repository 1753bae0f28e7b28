// `bench GROUP` prints the figures of a group, `bench --list` the groups' names.
#include "Groups.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace {

using namespace quorl::bench;

struct Group {
    std::string_view name;
    void (*run)(Figures&);
};
constexpr std::array groups = {
    Group{"archive", benchArchive}, Group{"https", benchHttps},     Group{"launch", benchLaunch},
    Group{"message", benchMessage}, Group{"offline", benchOffline}, Group{"pam", benchPam},
    Group{"store", benchStore},     Group{"totp", benchTotp},
};

}  // namespace

int main(int argc, char** argv) try {
    const std::string_view wanted = argc == 2 ? argv[1] : "";
    Figures figures;
    for (const Group& group : groups) {
        if (wanted == "--list")
            std::printf("%s\n", group.name.data());
        else if (wanted == group.name)
            return group.run(figures), 0;
    }
    if (wanted == "--list")
        return 0;
    std::fputs("usage: bench GROUP | --list\n", stderr);
    return 2;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 1;
}
