// SPDX-License-Identifier: Apache-2.0
//
// The table of silent servers, with times that the tests choose.

#include "backends/server_health.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using service::ServerHealth;
using State = ServerHealth::State;

constexpr ServerHealth::Time kDead = 100;
constexpr ServerHealth::Time kProbe = 10;
const std::string a = "radius/192.0.2.1", b = "radius/192.0.2.2", c = "radius/192.0.2.3";

using Order = std::vector<std::size_t>;

TEST(ServerHealth, AServerIsAliveUntilItIsSilent) {
    ServerHealth health;
    EXPECT_EQ(health.state(a, 0), State::kAlive);
    EXPECT_FALSE(health.answered(a, 4));
    EXPECT_FALSE(health.has_answered_since(b, 0));
    EXPECT_TRUE(health.has_answered_since(a, 3));
    EXPECT_FALSE(health.has_answered_since(a, 4)) << "not after it";
    EXPECT_TRUE(health.silent(a, 5, kDead));
    EXPECT_EQ(health.state(a, 5), State::kDead);
    EXPECT_EQ(health.state(a, 104), State::kDead);
    EXPECT_EQ(health.state(a, 105), State::kProbe);
    EXPECT_EQ(health.state(b, 5), State::kAlive);
    EXPECT_TRUE(health.answered(a, 6)) << "it was dead";
    EXPECT_EQ(health.state(a, 5), State::kAlive);
}

TEST(ServerHealth, DeadServersAreAskedLast) {
    ServerHealth health;
    EXPECT_EQ(health.order({a, b, c}, 0), (Order{0, 1, 2}));
    health.silent(a, 0, kDead);
    EXPECT_EQ(health.order({a, b, c}, 1), (Order{1, 2, 0}));
    health.silent(c, 0, kDead);
    EXPECT_EQ(health.order({a, b, c}, 1), (Order{1, 0, 2}));
    health.silent(b, 0, kDead);
    EXPECT_EQ(health.order({a, b, c}, 1), (Order{0, 1, 2})) << "asking all is better than asking none";
    EXPECT_EQ(health.order({}, 1), Order{});
}

TEST(ServerHealth, OneRequestProbesAServerWhoseTimeIsOver) {
    ServerHealth health;
    health.silent(a, 0, kDead);
    EXPECT_EQ(health.order({a, b}, 100), (Order{0, 1})) << "its place is the configured one again";
    health.asking(a, 100, kProbe);
    EXPECT_EQ(health.state(a, 101), State::kDead) << "another request does not wait for it too";
    EXPECT_EQ(health.order({a, b}, 101), (Order{1, 0}));
    // Silence begins the time again, from now.
    EXPECT_FALSE(health.silent(a, 105, kDead)) << "it is not newly dead";
    EXPECT_EQ(health.state(a, 204), State::kDead);
    EXPECT_EQ(health.state(a, 205), State::kProbe);
}

TEST(ServerHealth, AProbeThatIsNeverToldIsMadeAgain) {
    ServerHealth health;
    health.silent(a, 0, kDead);
    health.asking(a, 100, kProbe);
    EXPECT_EQ(health.state(a, 109), State::kDead);
    EXPECT_EQ(health.state(a, 110), State::kProbe);
}

// Requests that were under way when a server died moved the end of its time one after the other,
// so a busy service never asked it again.
TEST(ServerHealth, LateReportsDoNotExtendTheTime) {
    ServerHealth health;
    EXPECT_TRUE(health.silent(a, 0, kDead));
    for (int now = 1; now < 90; ++now) {
        EXPECT_FALSE(health.silent(a, now, kDead));
    }
    EXPECT_EQ(health.state(a, 100), State::kProbe);
}

TEST(ServerHealth, AskingALivingServerChangesNothing) {
    ServerHealth health;
    health.asking(a, 0, kProbe);
    EXPECT_EQ(health.state(a, 0), State::kAlive);
    health.silent(b, 0, kDead);
    health.asking(b, 50, kProbe);
    EXPECT_EQ(health.state(b, 100), State::kProbe) << "asked as the last resort, before its time was over";
}

TEST(ServerHealth, WithoutADeadTimeEveryServerIsAlwaysAsked) {
    ServerHealth health;
    EXPECT_FALSE(health.silent(a, 0, 0));
    EXPECT_EQ(health.state(a, 0), State::kAlive);
}

TEST(ServerHealth, ForgetsServersThatAreNoLongerConfigured) {
    ServerHealth health;
    health.silent(a, 0, kDead);
    health.silent(b, 0, kDead);
    health.keep_only([](const std::string &server) { return server == b; });
    EXPECT_EQ(health.state(a, 1), State::kAlive);
    EXPECT_EQ(health.state(b, 1), State::kDead);
}

}  // namespace
