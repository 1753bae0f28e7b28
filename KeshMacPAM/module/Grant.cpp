#include "Grant.h"

#include "FixedText.h"
#include "TimeLimit.h"

#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

namespace quorl::pam {
namespace {

using namespace std::chrono_literals;

constexpr const char* dataName = "pam_kesh_grant";
constexpr Milliseconds validFor = 60s;

struct Grant {
    FixedText<256> user;
    pid_t process;
    Milliseconds at;
};

void freeGrant(pam_handle_t*, void* grant, int) {
    std::free(grant);
}

}  // namespace

void rememberGrant(pam_handle_t* pamh, const char* user) {
    void* memory = std::malloc(sizeof(Grant));
    if (!memory)
        return;
    auto* grant = new (memory) Grant{FixedText<256>(user), getpid(), sinceBoot()};
    if (pam_set_data(pamh, dataName, grant, freeGrant) != PAM_SUCCESS)
        std::free(memory);
}

bool isGrantRemembered(pam_handle_t* pamh, const char* user) {
    const void* data = nullptr;
    if (pam_get_data(pamh, dataName, &data) != PAM_SUCCESS || !data)
        return false;
    const Grant& grant = *static_cast<const Grant*>(data);
    return grant.user.view() == user && grant.process == getpid() &&
           sinceBoot() - grant.at < validFor;
}

}  // namespace quorl::pam
