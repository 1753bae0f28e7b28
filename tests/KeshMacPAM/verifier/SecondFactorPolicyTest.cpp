#include "SecondFactorPolicy.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace quorl::test {
namespace {

using enum Decision;

// One letter a column; '*' is any. Configuration: m(issing) d(amaged) w(hole); LOGIN_MFA y n;
// server: a(nswers) s(ilent) c(ertificate); way: w(indow) t(ext); record: 0 allowed, 1 not
// enrolled, 2 limit reached, 3 switched off; enforced y n; bypass y n.
const struct {
    std::string_view when;
    Decision what;
} table[] = {
    {"m******", ignoreNeverSetUp},         //
    {"d******", denyDamaged},              //
    {"wn*****", ignoreSwitchedOff},        //
    {"wyaw***", onlinePage},               //
    {"wyat0**", offlineCodes},             //
    {"wyat1**", denyFirstAtLoginScreen},   //
    {"wyat2**", denyFirstAtLoginScreen},   //
    {"wyat3**", denyFirstAtLoginScreen},   //
    {"wysw0**", offlinePage},              //
    {"wyst0**", offlineCodes},             //
    {"wys*2**", denyLimitReached},         //
    {"wys*1y*", denyUnreachableEnforced},  //
    {"wys*3y*", denyUnreachableEnforced},  //
    {"wys*1ny", ignoreUnreachable},        //
    {"wys*3ny", ignoreUnreachable},        //
    {"wys*1nn", denyUnreachable},          //
    {"wys*3nn", denyUnreachable},          //
    {"wycw0**", offlinePage},              //
    {"wyct0**", offlineCodes},             //
    {"wyc*1**", denyCertificate},          //
    {"wyc*2**", denyCertificate},          //
    {"wyc*3**", denyCertificate},          //
};

TEST(SecondFactorPolicyTest, FollowsItsTableInEveryCombination) {
    std::vector<std::string> all = {""};
    for (const std::string_view letters : {"mdw", "yn", "asc", "wt", "0123", "yn", "yn"}) {
        std::vector<std::string> longer;
        for (const std::string& start : all)
            for (const char letter : letters)
                longer.push_back(start + letter);
        all = std::move(longer);
    }
    ASSERT_EQ(all.size(), 3U * 2 * 3 * 2 * 4 * 2 * 2);
    for (const std::string& one : all) {
        const SecondFactorSettings settings{.state = one[0] == 'm'   ? ConfigState::missing
                                                     : one[0] == 'd' ? ConfigState::damaged
                                                                     : ConfigState::whole,
                                            .secondFactorOn = one[1] == 'y',
                                            .bypassWhenUnreachable = one[6] == 'y',
                                            .enforced = one[5] == 'y'};
        const auto server = one[2] == 'a'   ? ServerState::answers
                            : one[2] == 's' ? ServerState::silent
                                            : ServerState::wrongCertificate;
        const auto way = one[3] == 'w' ? Way::window : Way::text;
        const OfflineState records[] = {OfflineState::allowed, OfflineState::notEnrolled,
                                        OfflineState::limitReached, OfflineState::switchedOff};
        const OfflineState record = records[one[4] - '0'];
        int rows = 0;
        for (const auto& row : table) {
            bool fits = true;
            for (std::size_t i = 0; i < one.size(); ++i)
                fits = fits && (row.when[i] == '*' || row.when[i] == one[i]);
            if (!fits)
                continue;
            ++rows;
            EXPECT_EQ(decide(settings, record, way, server), row.what) << one;
            const auto early = decideWithoutServer(settings, record, way);
            EXPECT_TRUE(!early || *early == row.what) << one;
            // Asking the server costs three seconds where it is silent.
            EXPECT_EQ(early.has_value(), one.substr(0, 2) != "wy" || one.substr(3, 2) == "t0")
                << one;
        }
        EXPECT_EQ(rows, 1) << one;
    }
}

}  // namespace
}  // namespace quorl::test
