// SPDX-License-Identifier: Apache-2.0

#include "radius/retransmission.hpp"

#include <gtest/gtest.h>

namespace radius {
namespace {

ServerSettings times(net::Time first, net::Time longest, int tries) {
    ServerSettings settings;
    settings.timeout = first;
    settings.longest_timeout = longest;
    settings.tries = tries;
    return settings;
}

TEST(Retransmission, DoublesTheWaitUpToTheLongest) {
    const ServerSettings settings = times(1000, 5000, 5);
    EXPECT_EQ(wait_after_try(settings, 0, 0), 1000);
    EXPECT_EQ(wait_after_try(settings, 1000, 0), 2000);
    EXPECT_EQ(wait_after_try(settings, 2000, 0), 4000);
    EXPECT_EQ(wait_after_try(settings, 4000, 0), 5000);
    EXPECT_EQ(wait_after_try(settings, 5000, 0), 5000);
}

TEST(Retransmission, DiffersByATenth) {
    const ServerSettings settings = times(1000, 5000, 5);
    EXPECT_EQ(wait_after_try(settings, 0, -1), 900);
    EXPECT_EQ(wait_after_try(settings, 0, 1), 1100);
    EXPECT_EQ(wait_after_try(settings, 1000, -1), 1900);
    EXPECT_EQ(wait_after_try(settings, 1000, 1), 2100);
    EXPECT_EQ(wait_after_try(settings, 4000, -1), 4500);
    EXPECT_EQ(wait_after_try(settings, 4000, 1), 5500);
}

TEST(Retransmission, SumsUpTheLongestWait) {
    EXPECT_EQ(longest_wait(times(1000, 1000, 1)), 1100);
    EXPECT_EQ(longest_wait(times(1000, 1000, 3)), 3300);
    EXPECT_EQ(longest_wait(times(1000, 100000, 3)), 1100 + 2310 + 4851);
}

TEST(Retransmission, IsRandomInItsRange) {
    double least = 1, most = -1;
    for (int i = 0; i < 1000; ++i) {
        const double value = random_fraction();
        ASSERT_GE(value, -1);
        ASSERT_LE(value, 1);
        least = std::min(least, value);
        most = std::max(most, value);
    }
    EXPECT_LT(least, -0.5);
    EXPECT_GT(most, 0.5);
}

}  // namespace
}  // namespace radius
