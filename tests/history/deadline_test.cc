// SPDX-License-Identifier: Apache-2.0

#include "store/deadline.hpp"

#include <gtest/gtest.h>

namespace {

using history::Deadline;
using history::Now;

constexpr std::int64_t kMinute = 60'000;

const Now kStart{"machine-a", "boot-a", 1000 * kMinute, 1'700'000'000};

TEST(Deadline, CountsFromTheStartOfTheMachine) {
    const Deadline deadline = history::deadline_after(10, kStart);
    Now now = kStart;
    EXPECT_EQ(history::left(deadline, now), 10 * kMinute);
    now.since_boot += 10 * kMinute - 1;
    EXPECT_EQ(history::left(deadline, now), 1);
    now.since_boot += 2;
    EXPECT_EQ(history::left(deadline, now), -1);
}

TEST(Deadline, ASetWallClockChangesNothing) {
    const Deadline deadline = history::deadline_after(10, kStart);
    for (const std::int64_t wall : {std::int64_t{0}, kStart.wall - 86'400, kStart.wall + 86'400}) {
        Now now = kStart;
        now.wall = wall;
        EXPECT_EQ(history::left(deadline, now), 10 * kMinute) << wall;
    }
}

TEST(Deadline, AfterARestartTheWallClockDecides) {
    const Deadline deadline = history::deadline_after(10, kStart);
    const Now early{"machine-a", "boot-b", kMinute, kStart.wall + 3 * 60};
    EXPECT_EQ(history::left(deadline, early), 7 * kMinute);
    const Now late{"machine-a", "boot-b", kMinute, kStart.wall + 11 * 60};
    EXPECT_LE(*history::left(deadline, late), 0);
}

TEST(Deadline, AfterARestartALostWallClockCannotDelayIt) {
    const Deadline deadline = history::deadline_after(10, kStart);
    const Now lost{"machine-a", "boot-b", 4 * kMinute, 0};
    EXPECT_EQ(history::left(deadline, lost), 6 * kMinute);
    const Now later{"machine-a", "boot-b", 11 * kMinute, 7 * 60};
    EXPECT_LE(*history::left(deadline, later), 0);
}

TEST(Deadline, AMachineWithoutABootIdIsNotTakenForTheSameBoot) {
    Now start = kStart;
    start.boot = "";
    const Deadline deadline = history::deadline_after(10, start);
    const Now restarted{"machine-a", "", kMinute, kStart.wall + 20 * 60};
    EXPECT_LE(*history::left(deadline, restarted), 0);
}

TEST(Deadline, OtherMachinesDoNotKnow) {
    Now other = kStart;
    other.machine = "machine-b";
    EXPECT_FALSE(history::left(history::deadline_after(10, kStart), other));
}

// Symptom: on a machine made from a copy of another one's disk, a commit was reverted as soon as it was made.
TEST(Deadline, ACopyOfTheMachineIsAnotherOne) {
    const Deadline deadline = history::deadline_after(10, kStart);
    Now copy = kStart;
    copy.boot = "boot-of-the-copy";
    EXPECT_FALSE(history::left(deadline, copy));
    copy.wall += 5 * 60;
    EXPECT_FALSE(history::left(deadline, copy));
    copy.since_boot = 4 * kMinute;  // restarted since
    EXPECT_EQ(history::left(deadline, copy), 5 * kMinute);
}

TEST(Deadline, AnyStoredNumberIsTaken) {
    Deadline deadline = history::deadline_after(UINT32_MAX, kStart);
    deadline.boot = "boot-x";
    for (const std::int64_t wall : {INT64_MIN, INT64_MAX, std::int64_t{0}}) {
        deadline.wall = wall;
        EXPECT_TRUE(history::left(deadline, kStart)) << wall;
    }
}

TEST(Deadline, TheClocksOfThisMachineAreRead) {
    const Now now = history::system_now();
    EXPECT_GT(now.since_boot, 0);
    EXPECT_GT(now.wall, 1'700'000'000);
    EXPECT_FALSE(now.machine.empty());
    EXPECT_EQ(history::system_now().boot, now.boot);
}

}  // namespace
