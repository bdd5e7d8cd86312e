// SPDX-License-Identifier: Apache-2.0
//
// A process that is stopped while it holds a lock of the database. The others get a code
// after a limited time, and the log names the process, if it is one that can be the holder.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "stopped_process.hpp"
#include "support/sysdb.hpp"
#include "support/time_limit.h"

namespace {

// The mutex of the table of readers follows two numbers at the start of the lock file.
constexpr std::size_t kReadersMutexAt = 8;
// Two more numbers follow, and the writer's mutex on the next cache line.
constexpr std::size_t kWritersMutexAt = (kReadersMutexAt + sizeof(pthread_mutex_t) + 16 + 63) / 64 * 64;

#define EXPECT_HAS(text, part)     EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)
#define EXPECT_HAS_NOT(text, part) EXPECT_EQ(std::string::npos, (text).find(part)) << "in: " << (text)

// The descriptor stays open: closing it would drop LMDB's record lock.
char *map_lock_file(const std::string &file) {
    const int fd = open((file + "-lock").c_str(), O_RDWR | O_CLOEXEC);
    void *map = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED) {
        _exit(1);
    }
    return static_cast<char *>(map);
}

void lock_table_of_readers(const std::string &file) {
    open_database(file);
    if (pthread_mutex_lock(reinterpret_cast<pthread_mutex_t *>(map_lock_file(file) + kReadersMutexAt)) != 0) {
        _exit(1);
    }
}

// As a member of the group can write it: the writer's lock is held, by this process.
void forge_writer(const std::string &file, pid_t holder) {
    *reinterpret_cast<std::uint32_t *>(map_lock_file(file) + kWritersMutexAt) =
        static_cast<std::uint32_t>(holder) | FUTEX_WAITERS;
}

// As a process does that initialises the lock file.
void lock_initialisation(const std::string &file) {
    const int fd = open((file + "-lock").c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    if (fcntl(fd, F_SETLK, &lock) != 0) {
        _exit(1);
    }
}

// What must end although a lock is kept.
std::string run_limited(const std::function<void()> &body) {
    return run_forked([&body] {
        set_time_limit("a process that uses a database whose lock is kept");
        body();
    });
}

void make_database() {
    run_forked([] {
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 1));
    });
}

void expect_named(const std::string &log, const DatabaseSandbox &sandbox, const StoppedProcess &holder) {
    EXPECT_HAS(log, sandbox.cfg_file());
    EXPECT_HAS(log, "process " + holder.number() + " (the\\nholder), which is stopped,");
    EXPECT_HAS(log, "kill -CONT " + holder.number());
}

// ^Z in one login stopped the logins of everybody.
TEST(SysdbLocks, StoppedWriterIsNamedAndTheOthersGoOn) {
    const DatabaseSandbox sandbox;
    make_database();
    StoppedProcess holder([&sandbox] { begin_transaction(sandbox.cfg_file()); });
    const std::string log = run_limited([] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, bound.code());
        EXPECT_EQ(SYSDB_ERR_BUSY, set_number(bound.handle(), "a", 2));
        EXPECT_EQ(SYSDB_ERR_BUSY, sysdb_item_delete(bound.handle(), "a", 0));
        EXPECT_EQ(1, get_number(bound.handle(), "a"));
    });
    expect_named(log, sandbox, holder);
    holder.go_on();
    run_limited([] {
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_number(bound.handle(), "a", 3));
    });
}

TEST(SysdbLocks, WriterThatIsKilledFreesTheLock) {
    const DatabaseSandbox sandbox;
    make_database();
    Pipe waiting;
    StoppedProcess holder([&sandbox] { begin_transaction(sandbox.cfg_file()); });
    ForkedProcess other([&waiting] {
        set_time_limit("the process that waits for the lock");
        const Bound bound("/cfg/");
        waiting.put();
        EXPECT_EQ(0u, set_number(bound.handle(), "a", 2));
    });
    ASSERT_TRUE(waiting.take());
    holder.kill_now();
    EXPECT_EQ(0, other.wait());
}

TEST(SysdbLocks, StoppedHolderOfTheTableOfReadersIsNamed) {
    const DatabaseSandbox sandbox;
    make_database();
    StoppedProcess holder([&sandbox] { lock_table_of_readers(sandbox.cfg_file()); });
    const std::string log = run_limited([] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        EXPECT_EQ(SYSDB_ERR_BUSY, Bound("/cfg/").code());
    });
    expect_named(log, sandbox, holder);
    holder.go_on();
}

TEST(SysdbLocks, ProcessThatStoppedWhileItOpenedTheFileIsNamed) {
    const DatabaseSandbox sandbox;
    make_database();
    StoppedProcess holder([&sandbox] { lock_initialisation(sandbox.cfg_file()); });
    const std::string log = run_limited([] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        EXPECT_EQ(SYSDB_ERR_BUSY, Bound("/cfg/").code());
        EXPECT_EQ(0u, Bound("/oper/").code());  // the other tree does not wait
    });
    expect_named(log, sandbox, holder);
    holder.go_on();
    run_limited([] { EXPECT_EQ(0u, Bound("/cfg/").code()); });
}

// What an administrator reads who looks for the reason of logins that fail.
void write_in_vain() {
    setenv("AAA_SYSDB_WAIT_MS", "50", 1);
    const Bound bound("/cfg/");
    ASSERT_EQ(0u, bound.code());
    EXPECT_EQ(SYSDB_ERR_BUSY, set_number(bound.handle(), "a", 2));
}

std::string log_of_writer_in_vain() {
    return run_limited(write_in_vain);
}

void expect_not_verified(const std::string &log, const DatabaseSandbox &sandbox, pid_t number,
                         const std::string &why) {
    EXPECT_HAS(log, "database " + sandbox.cfg_file());
    EXPECT_HAS(log, sandbox.cfg_file() + "-lock names process " + std::to_string(number) + ", which " + why);
    EXPECT_HAS(log, "could not be verified");
    EXPECT_HAS(log, "fuser -v " + sandbox.cfg_file() + "-lock");
    EXPECT_HAS_NOT(log, "kill -");
}

// The log advised to kill a process that had nothing to do with the database: members of
// the group write the number, and a holder in a container has another one here.
TEST(SysdbLocks, ProcessThatDoesNotUseTheFileIsNotToBeKilled) {
    const DatabaseSandbox sandbox;
    make_database();
    Pipe end;
    ForkedProcess innocent([&end] {
        const int other = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
        end.take(-1);
        close(other);
    });
    // One process has the file open, so that the next one does not initialise its locks.
    StoppedProcess forger([&] {
        open_database(sandbox.cfg_file());
        forge_writer(sandbox.cfg_file(), innocent.pid());
    });
    expect_not_verified(log_of_writer_in_vain(), sandbox, innocent.pid(), "does not have it open");
    end.put();
    EXPECT_EQ(0, innocent.wait());
}

TEST(SysdbLocks, ProcessOfAnotherDatabaseIsNotToBeKilled) {
    const DatabaseSandbox sandbox;
    make_database();
    Pipe ready;
    Pipe end;
    ForkedProcess innocent([&] {
        const Bound bound("/oper/");
        ready.put();
        end.take(-1);
    });
    ASSERT_TRUE(ready.take());
    StoppedProcess forger([&] {
        open_database(sandbox.cfg_file());
        forge_writer(sandbox.cfg_file(), innocent.pid());
    });
    expect_not_verified(log_of_writer_in_vain(), sandbox, innocent.pid(), "does not have it open");
    end.put();
    EXPECT_EQ(0, innocent.wait());
}

TEST(SysdbLocks, NumberWithoutAProcessIsNotToBeKilled) {
    const DatabaseSandbox sandbox;
    make_database();
    constexpr pid_t kNoProcess = 0x3ffffffe;  // above the largest number that Linux gives out
    StoppedProcess forger([&] {
        open_database(sandbox.cfg_file());
        forge_writer(sandbox.cfg_file(), kNoProcess);
    });
    expect_not_verified(log_of_writer_in_vain(), sandbox, kNoProcess, "does not exist here");
}

// The log said that the process that waits keeps the lock, and advised to kill it.
TEST(SysdbLocks, HolderOfTheSameNumberInAnotherContainerIsNotThisProcess) {
    SKIP_WITHOUT_CONTAINERS();
    const DatabaseSandbox sandbox;
    make_database();
    Pipe ready;
    Pipe end;
    ForkedProcess holder([&] {
        EXPECT_TRUE(run_in_container([&] {
            begin_transaction(sandbox.cfg_file());
            ready.put();
            end.take(-1);
        }));
    });
    ASSERT_TRUE(ready.take());
    const std::string log = run_limited([] { EXPECT_TRUE(run_in_container(write_in_vain)); });
    EXPECT_HAS(log, "database " + sandbox.cfg_file());
    EXPECT_HAS(log, "names process 1, which is the number of this process, but it does not hold the lock");
    EXPECT_HAS(log, "fuser -v " + sandbox.cfg_file() + "-lock");
    EXPECT_HAS_NOT(log, "kill -");
    end.put();
    EXPECT_EQ(0, holder.wait());
}

// The log said "Resource temporarily unavailable; check the directory and its permissions".
TEST(SysdbLocks, ReaderOfTheSameNumberInAnotherContainerIsReported) {
    SKIP_WITHOUT_CONTAINERS();
    const DatabaseSandbox sandbox;
    make_database();
    Pipe ready;
    Pipe end;
    ForkedProcess reader([&] {
        EXPECT_TRUE(run_in_container([&] {
            begin_transaction(sandbox.cfg_file(), MDB_RDONLY);
            ready.put();
            end.take(-1);
        }));
    });
    ASSERT_TRUE(ready.take());
    const std::string log = run_limited(
        [] { EXPECT_TRUE(run_in_container([] { EXPECT_EQ(SYSDB_ERR_BUSY, Bound("/cfg/").code()); })); });
    EXPECT_HAS(log, "database " + sandbox.cfg_file() + " is used by a process of another container");
    EXPECT_HAS(log, "the same number as this one, 1");
    EXPECT_HAS(log, "one pid namespace");
    EXPECT_HAS_NOT(log, "permissions");
    end.put();
    EXPECT_EQ(0, reader.wait());
}

// A member of the group can keep the locks of all numbers. The log blamed a container only.
TEST(SysdbLocks, ProgramThatKeepsTheLocksOfReadersCanBeFound) {
    const DatabaseSandbox sandbox;
    make_database();
    Pipe ready;
    Pipe end;
    ForkedProcess member([&] {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_start = 1;  // to the end of all numbers
        const int fd = open((sandbox.cfg_file() + "-lock").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(0, fcntl(fd, F_SETLK, &lock));
        ready.put();
        end.take(-1);
    });
    ASSERT_TRUE(ready.take());
    const std::string log = run_limited([] { EXPECT_EQ(SYSDB_ERR_BUSY, Bound("/cfg/").code()); });
    EXPECT_HAS(log, "or another program keeps a lock of the file; as root of the host, fuser -v " +
                        sandbox.cfg_file() + "-lock lists who uses it");
    end.put();
    EXPECT_EQ(0, member.wait());
    run_limited([] { EXPECT_EQ(0u, Bound("/cfg/").code()); });
}

// Another thread of this process has the lock, and this one told to kill the process.
TEST(SysdbLocks, ThreadOfTheSameProcessIsNotToBeKilled) {
    const DatabaseSandbox sandbox;
    make_database();
    Pipe ready;
    Pipe end;
    ForkedProcess forger([&] {
        open_database(sandbox.cfg_file());
        int number = 0;
        ASSERT_TRUE(ready.take());
        ASSERT_EQ(static_cast<ssize_t>(sizeof number), read(ready.reading_end(), &number, sizeof number));
        forge_writer(sandbox.cfg_file(), number);
        end.put();
        ready.take(-1);
    });
    const std::string log = run_limited([&] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, bound.code());
        const int self = getpid();
        ready.put();
        ASSERT_EQ(static_cast<ssize_t>(sizeof self), write(ready.writing_end(), &self, sizeof self));
        ASSERT_TRUE(end.take());
        std::thread other([&bound] { EXPECT_EQ(SYSDB_ERR_BUSY, set_number(bound.handle(), "a", 2)); });
        other.join();
    });
    EXPECT_HAS(log, " of this process, ");
    EXPECT_HAS(log, "fuser -v " + sandbox.cfg_file() + "-lock");
    EXPECT_HAS_NOT(log, "kill -");
    ready.put();
    EXPECT_EQ(0, forger.wait());
}

TEST(SysdbLocks, WaitThatIsNoNumberIsReported) {
    const DatabaseSandbox sandbox;
    const std::string log = run_limited([] {
        setenv("AAA_SYSDB_WAIT_MS", "0", 1);
        EXPECT_EQ(0u, Bound("/cfg/").code());
    });
    EXPECT_HAS(log, "AAA_SYSDB_WAIT_MS=0 is not a number from 1 to 600000");
}

}  // namespace
