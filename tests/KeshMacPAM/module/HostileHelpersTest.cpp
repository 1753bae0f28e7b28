#include "LoginHost.h"

#include <gmock/gmock.h>
#include <security/pam_appl.h>

namespace quorl::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;

namespace fs = std::filesystem;

/// A denial with one line that says which, one last prompt, and nothing left behind.
void expectPlainDenial(const Played& played, const std::string& reason) {
    EXPECT_EQ(played.status, PAM_AUTH_ERR) << reason;
    EXPECT_THAT(played.log, HasSubstr("denied: " + reason));
    EXPECT_EQ(std::count(played.log.begin(), played.log.end(), '\n'), 1) << played.log;
    EXPECT_THAT(played.prompts, SizeIs(1)) << reason;
    EXPECT_EQ(played.leftOpen, 0) << reason;
    EXPECT_FALSE(played.children) << reason;
    EXPECT_TRUE(played.sameSignals) << reason;
}

TEST(HostileHelper, IsADenialThatSaysWhich) {
    const struct {
        const char* user;
        const char* reason;
    } rows[] = {{"nothing", "the helper ended without a verdict"},
                {"killed", "the helper ended without a verdict"},
                {"garbage", "the helper sent a packet that is none of this version"},
                {"newer", "the helper sent a packet that is none of this version"},
                {"odd", "the helper sent a packet that is none of this version"},
                {"fifth", "the helper sent a packet that is none of this version"},
                {"long", "the helper sent an overlong packet"}};
    for (const auto& row : rows) {
        const ModuleSandbox sandbox;
        const Played played = play(sandbox, {.user = row.user});
        expectPlainDenial(played, row.reason);
        EXPECT_LT(played.took(), 5s) << row.user;
        EXPECT_TRUE(waitFor([&] { return !sandbox.helperLives(); }, 1s)) << row.user;
    }
}

TEST(HostileHelper, ThatCannotBeStartedIsADenialForThoseWhoAreAsked) {
    const struct {
        const char* what;
        std::function<void(const fs::path&)> spoil;
        const char* error;
    } rows[] = {
        {"missing", [](const fs::path& helper) { fs::remove(helper); }, "No such file"},
        {"not executable", [](const fs::path& helper) { fs::permissions(helper, fs::perms(0600)); },
         "Permission denied"},
        {"no program",
         [](const fs::path& helper) {
             TestSandbox::write(helper,
                                "\x7f"
                                "ELF");
         },
         "Exec format error"},
        {"a folder",
         [](const fs::path& helper) {
             fs::remove(helper);
             fs::create_directory(helper);
         },
         "Permission denied"}};
    for (const auto& row : rows) {
        const ModuleSandbox sandbox;
        row.spoil(sandbox.path("helper"));
        const Played played = play(sandbox, {.user = "granted"});
        expectPlainDenial(played, "the helper could not be started");
        EXPECT_THAT(played.log, HasSubstr(row.error)) << row.what;
        EXPECT_LT(played.took(), 1s) << row.what;
        sandbox.stack("login", "auth required MODULE\nauth required pam_permit.so");
        for (const char* exempt : {"root", "daemon"})
            EXPECT_EQ(play(sandbox, {.user = exempt}).status, PAM_SUCCESS) << row.what;
    }
}

TEST(HostileHelper, ThatHangsIsEndedInTime) {
    const ModuleSandbox mute, stopped, looping, alive, slowPerson;
    for (const ModuleSandbox* sandbox : {&alive, &slowPerson})
        TestSandbox::write(sandbox->path("pam_kesh.conf"), "timeout = 10");
    struct Row {
        const ModuleSandbox& sandbox;
        const char* reason;
        LoginHost host;
    };
    std::vector<Row> rows;
    for (const auto& [sandbox, user, reason] :
         {std::tuple(&mute, "mute", "the helper kept silent"),
          std::tuple(&stopped, "stopped", "the helper kept silent"),
          std::tuple(&looping, "looping", "the helper kept silent"),
          std::tuple(&alive, "alive", "the time ran out")})
        rows.push_back({*sandbox, reason, LoginHost(*sandbox, {.user = user})});
    LoginHost late(slowPerson, {.user = "codes", .person = {.thinks = 10500ms}});
    for (Row& row : rows) {
        const Played played = row.host.wait();
        expectPlainDenial(played, row.reason);
        EXPECT_GE(played.took(), 9s);
        EXPECT_LT(played.took(), 12s);
        EXPECT_TRUE(waitFor([&] { return !row.sandbox.helperLives(); }, 1s)) << row.reason;
    }
    // The right code, but after the time: no success, and the last prompt says why.
    const Played played = late.wait();
    EXPECT_EQ(played.status, PAM_AUTH_ERR);
    EXPECT_THAT(played.prompts.back(), HasSubstr("That took too long."));
}

TEST(HostileConversation, IsADenial) {
    using Manner = Person::Manner;
    for (const Manner manner :
         {Manner::Fails, Manner::Nothing, Manner::Megabyte, Manner::NoFunction}) {
        const ModuleSandbox sandbox;
        const Played played = play(sandbox, {.user = "codes", .person = {.manner = manner}});
        EXPECT_EQ(played.status, PAM_AUTH_ERR);
        EXPECT_EQ(played.leftOpen, 0);
        EXPECT_LE(played.prompts.size(), 2u);
        // Kind 5, answer 3: what was handed back stays out of the packet.
        EXPECT_THAT(sandbox.seen(), HasSubstr("reply=4b565001050300"
                                              "00\n"));
        EXPECT_THAT(played.log, HasSubstr("the conversation gave no answer"));
        EXPECT_TRUE(waitFor([&] { return !sandbox.helperLives(); }, 1s));
    }
}

}  // namespace
}  // namespace quorl::test
