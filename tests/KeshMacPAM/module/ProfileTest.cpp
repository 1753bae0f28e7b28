#include "LoginHost.h"

#include <gmock/gmock.h>
#include <security/pam_appl.h>
#include <sys/resource.h>

#include <cstring>

namespace quorl::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* passwordLines =
    "auth [success=1 default=ignore] pam_permit.so\n"
    "auth requisite pam_deny.so\n"
    "auth required pam_permit.so\n";

/// The four lines that the package's profile puts behind the password's.
constexpr const char* profile =
    "auth [success=3 ignore=3 module_unknown=ignore default=die] MODULE\n"
    "auth [success=2 default=ignore] pam_succeed_if.so quiet uid eq 0\n"
    "auth [success=1 default=ignore] pam_localuser.so file=PASSWD\n"
    "auth requisite pam_deny.so\n";

void replaceAll(const fs::path& file, const std::string& part, const std::string& instead) {
    std::string bytes = TestSandbox::read(file);
    for (auto at = bytes.find(part); at != bytes.npos; at = bytes.find(part, at))
        bytes.replace(at, part.size(), instead);
    TestSandbox::write(file, bytes);
}

TEST(Profile, KeepsTheWayInOfRootAndLocalAccountsAndOfNobodyElse) {
    const struct {
        const char* state;
        std::function<void(const fs::path& module)> spoil;
        bool asks;
    } rows[] = {
        {"whole", [](const fs::path&) {}, true},
        {"missing", [](const fs::path& module) { fs::remove(module); }, false},
        {"empty", [](const fs::path& module) { TestSandbox::write(module, ""); }, false},
        {"cut", [](const fs::path& module) { fs::resize_file(module, 40); }, false},
        // The ELF header's e_machine.
        {"of another machine",
         [](const fs::path& module) {
             TestSandbox::write(module, TestSandbox::read(module).replace(18, 1, "\x16"));
         },
         false},
        {"without its entries",
         [](const fs::path& module) { replaceAll(module, "pam_sm_", "qam_sm_"); }, false},
        {"in need of a library that is not there",
         [](const fs::path& module) { replaceAll(module, "libpam.so.0", "libqam.so.0"); }, false},
    };
    for (const auto& row : rows) {
        const ModuleSandbox sandbox;
        std::string lines = profile;
        lines.replace(lines.find("PASSWD"), 6, sandbox.path("passwd"));
        sandbox.stack("login", passwordLines + lines);
        row.spoil(sandbox.path("pam_kesh.so"));
        for (const char* user : {"root", "daemon"}) {
            const Played played = play(sandbox, {.user = user});
            EXPECT_EQ(played.status, PAM_SUCCESS) << row.state << ", " << user;
            EXPECT_EQ(played.credentials, PAM_SUCCESS) << row.state << ", " << user;
        }
        // An account that the name service knows and the local files do not.
        EXPECT_NE(play(sandbox, {.user = "games"}).status, PAM_SUCCESS) << row.state;
        EXPECT_EQ(play(sandbox, {.user = "granted"}).status == PAM_SUCCESS, row.asks) << row.state;
    }
}

TEST(Profile, LetsNobodyInWhoKeepsTheModuleFromLoading) {
    const ModuleSandbox sandbox;
    std::string lines = profile;
    lines.replace(lines.find("PASSWD"), 6, sandbox.path("passwd"));
    sandbox.stack("login", passwordLines + lines);
    for (const rlim_t memory : {1 << 16, 1 << 20, 1 << 24, 1 << 28}) {
        const Played played = play(sandbox, {.user = "games", .prepare = [memory] {
                                                 const rlimit both{memory, memory};
                                                 setrlimit(RLIMIT_AS, &both);
                                             }});
        EXPECT_NE(played.status, PAM_SUCCESS) << memory;
    }
}

}  // namespace
}  // namespace quorl::test
