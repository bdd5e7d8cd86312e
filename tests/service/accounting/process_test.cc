// SPDX-License-Identifier: Apache-2.0

#include "accounting/process.hpp"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace accounting {
namespace {

Record record_of(std::uint32_t pid) {
    Record record;
    record.process = process_of(pid);
    record.arrival = Moment::now();
    return record;
}

TEST(Process, IsAliveUntilItEnds) {
    int hold[2];
    ASSERT_EQ(pipe(hold), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(hold[1]);
        char byte;
        _exit(read(hold[0], &byte, 1) < 0 ? 1 : 0);
    }
    const Record record = record_of(static_cast<std::uint32_t>(child));
    EXPECT_EQ(record.process.pid, static_cast<std::uint32_t>(child));
    EXPECT_NE(record.process.started, 0U);
    EXPECT_TRUE(is_alive(record));
    close(hold[0]);
    close(hold[1]);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(is_alive(record));
    EXPECT_EQ(process_of(static_cast<std::uint32_t>(child)).pid, 0U);
}

TEST(Process, WithTheSameNumberIsAnother) {
    Record record = record_of(static_cast<std::uint32_t>(getpid()));
    EXPECT_TRUE(is_alive(record));
    ++record.process.started;
    EXPECT_FALSE(is_alive(record));
}

TEST(Process, EndsWithTheMachine) {
    Record record = record_of(static_cast<std::uint32_t>(getpid()));
    record.arrival.boot[0] ^= 1;
    EXPECT_FALSE(is_alive(record));
}

TEST(Process, ThatIsNotKnownIsTakenForAlive) {
    Record record = record_of(0);
    EXPECT_TRUE(is_alive(record));
}

TEST(Process, MayHaveAnyName) {
    ASSERT_EQ(prctl(PR_SET_NAME, ") R 1 1 (x"), 0);
    const Record record = record_of(static_cast<std::uint32_t>(getpid()));
    EXPECT_TRUE(is_alive(record));
    ASSERT_EQ(prctl(PR_SET_NAME, "plain"), 0);
    EXPECT_EQ(process_of(static_cast<std::uint32_t>(getpid())), record.process);
}

}  // namespace
}  // namespace accounting
