// SPDX-License-Identifier: Apache-2.0
//
// The program goes back from a commit whose time is over, and logins follow the configuration that is in
// force again.

#include "service/aaad.hpp"
#include "service/confirmation/waiting_commit.hpp"

namespace {

using aaad_test::Aaad;
using confirmation_test::at;
using confirmation_test::commit;

TEST(AaadConfirm, GoesBackAndUsesTheConfigurationBefore) {
    Aaad aaad;
    aaad.list("authentication/login/default", {AAA_METHOD_LOCAL});
    const Bound cfg("/cfg/");
    commit(cfg.handle(), 0, history::system_now());
    aaad.start();
    EXPECT_EQ(aaad.login().status, uint32_t{AAA_STAT_PASS});
    aaad.list("authentication/login/default", {AAA_METHOD_NONE});
    history::Now long_ago = history::system_now();
    long_ago.since_boot -= 10 * 60'000;
    commit(cfg.handle(), 5, long_ago);
    EXPECT_TRUE(
        aaad.wait_for_log("commit 2 of the configuration was not confirmed in time: the state of commit 1"));
    aaad_test::Ask wrong;
    wrong.password = "not this";
    aaad.wait_for_login(wrong, [](const aaad_test::Reply &reply) { return reply.status == AAA_STAT_FAIL; });
    EXPECT_EQ(aaad.stop(), 0);
}

TEST(AaadConfirm, GoesBackAfterItWasAway) {
    Aaad aaad;
    aaad.list("authentication/login/default", {AAA_METHOD_LOCAL});
    const Bound cfg("/cfg/");
    commit(cfg.handle(), 0, history::system_now());
    aaad.list("authentication/login/default", {AAA_METHOD_NONE});
    history::Now other_boot = at(0);
    other_boot.boot = "another";
    other_boot.wall -= history::system_now().since_boot / 1000 + 3600;  // before this boot
    commit(cfg.handle(), 5, other_boot);
    aaad.start();
    EXPECT_TRUE(aaad.wait_for_log("was not confirmed in time"));
    EXPECT_EQ(aaad.stop(), 0);
    EXPECT_EQ(history::Store(cfg.handle()).head().last, 3u);
}

}  // namespace
