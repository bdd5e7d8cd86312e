// SPDX-License-Identifier: Apache-2.0

#include "records/clock.hpp"

#include <gtest/gtest.h>

namespace accounting {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kWall = 1'770'000'000 * kSecond;
constexpr BootId kBoot{1}, kOtherBoot{2};

TEST(Delay, IsTheUptimeThatHasPassed) {
    EXPECT_EQ(delay_seconds({kBoot, kWall, 100 * kSecond}, {kBoot, kWall + 7 * kSecond, 107 * kSecond}), 7U);
    EXPECT_EQ(delay_seconds({kBoot, kWall, 100 * kSecond}, {kBoot, kWall, 100 * kSecond + kSecond - 1}), 0U);
}

TEST(Delay, IgnoresTheClockWithinOneRunOfTheMachine) {
    for (const std::int64_t jump : {-kWall, -kSecond, 3600 * kSecond, kWall}) {
        EXPECT_EQ(delay_seconds({kBoot, kWall, 100 * kSecond}, {kBoot, kWall + jump, 105 * kSecond}), 5U)
            << jump;
    }
}

TEST(Delay, IsNeverNegative) {
    EXPECT_EQ(delay_seconds({kBoot, kWall, 100 * kSecond}, {kBoot, kWall, 0}), 0U);
    EXPECT_EQ(delay_seconds({kBoot, INT64_MAX, INT64_MAX}, {kBoot, INT64_MIN, 0}), 0U);
    EXPECT_EQ(delay_seconds({kBoot, kWall, 0}, {kOtherBoot, kWall - 3600 * kSecond, 0}), 0U);
}

TEST(Delay, AcrossARestartIsTheDifferenceOfTheClocks) {
    EXPECT_EQ(delay_seconds({kBoot, kWall, 100 * kSecond}, {kOtherBoot, kWall + 90 * kSecond, 30 * kSecond}),
              90U);
}

TEST(Delay, AcrossARestartIsAtLeastTheUptime) {
    // The clock was set back by an hour, or by so much that it seems to have stood still.
    EXPECT_EQ(delay_seconds({kBoot, kWall, 0}, {kOtherBoot, kWall - 3600 * kSecond, 30 * kSecond}), 30U);
    EXPECT_EQ(delay_seconds({kBoot, kWall, 0}, {kOtherBoot, kWall + 10 * kSecond, 30 * kSecond}), 30U);
}

TEST(Delay, OfAClockThatWasNotSetIsTheUptime) {
    // A machine without its own clock: the record in 1970, the delivery today, and the reverse.
    EXPECT_EQ(delay_seconds({kBoot, 60 * kSecond, 60 * kSecond}, {kOtherBoot, kWall, 40 * kSecond}), 40U);
    EXPECT_EQ(delay_seconds({kBoot, kWall, 60 * kSecond}, {kOtherBoot, 40 * kSecond, 40 * kSecond}), 40U);
}

TEST(Delay, OfYearsIsNotBelieved) {
    EXPECT_EQ(
        delay_seconds({kBoot, kWall, 0}, {kOtherBoot, kWall + 10LL * 366 * 86'400 * kSecond, 9 * kSecond}),
        9U);
}

TEST(Delay, WithoutABootIdTakesTheLongerOne) {
    EXPECT_EQ(delay_seconds({BootId{}, kWall, 900 * kSecond}, {BootId{}, kWall + 5 * kSecond, 3 * kSecond}),
              5U);
}

TEST(Moment, IsThatOfThisRunOfTheMachine) {
    const Moment first = Moment::now();
    const Moment second = Moment::now();
    EXPECT_EQ(first.boot, second.boot);
    EXPECT_NE(first.boot, BootId{});
    EXPECT_LE(first.uptime, second.uptime);
    EXPECT_GT(first.wall, 1'577'836'800 * kSecond);
}

}  // namespace
}  // namespace accounting
