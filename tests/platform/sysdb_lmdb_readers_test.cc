// SPDX-License-Identifier: Apache-2.0
//
// A process that is stopped in the middle of a read. The pages that it may still read are not
// used again, so that the others fill the map.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>

#include "stopped_process.hpp"
#include "support/database_table.hpp"
#include "support/machine.hpp"
#include "support/sysdb.hpp"
#include "support/time_limit.h"

namespace {

// The process stops at its next line on standard error.
bool g_stops_at_a_log_line = false;

// Before each pause of a process that waits.
std::function<void()> &on_pause() {
    static auto &instance = *new std::function<void()>;
    return instance;
}

// Between two looks of a change at the oldest reader: a transaction that reads begins there.
std::function<void()> &on_read() {
    static auto &instance = *new std::function<void()>;
    return instance;
}

}  // namespace

// The executable's ones take precedence in the platform and the provider.
extern "C" int nanosleep(const timespec *time, timespec *rest) {
    if (on_pause()) {
        on_pause()();
    }
    return static_cast<int>(syscall(SYS_nanosleep, time, rest));
}

extern "C" pthread_t pthread_self() noexcept {
    static const auto real = reinterpret_cast<pthread_t (*)()>(dlsym(RTLD_NEXT, "pthread_self"));
    if (on_read()) {
        on_read()();
    }
    return real();
}

extern "C" ssize_t write(int fd, const void *bytes, size_t count) {
    if (g_stops_at_a_log_line && fd == STDERR_FILENO) {
        g_stops_at_a_log_line = false;
        raise(SIGSTOP);
    }
    return syscall(SYS_write, fd, bytes, count);
}

namespace {

#define EXPECT_HAS(text, part)     EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)
#define EXPECT_HAS_NOT(text, part) EXPECT_EQ(std::string::npos, (text).find(part)) << "in: " << (text)

constexpr unsigned kMostChanges = 5000;  // many times those that fill the map of one MiB

// A body in a process with a small map, which waits for readers for a short time only.
std::string run_small(const std::function<void()> &body, const char *wait_ms = "50") {
    return run_forked([&] {
        set_time_limit("a process that uses a database with a reader that is stopped");
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);
        setenv("AAA_SYSDB_WAIT_MS", wait_ms, 1);
        body();
    });
}

void make_small_database() {
    run_small([] {
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 1));
        ASSERT_EQ(0u, set_text(bound.handle(), "other", "deleted later"));
    });
}

// The number of changes of one item, which needs no room for itself, before one fails.
unsigned change_until_failure(const Bound &bound, cerrno &code) {
    for (unsigned i = 0; i < kMostChanges; ++i) {
        code = set_number(bound.handle(), "a", i + 2);
        if (code != 0) {
            return i;
        }
    }
    return kMostChanges;
}

void expect_all_changes() {
    cerrno code = 0;
    EXPECT_EQ(kMostChanges, change_until_failure(Bound("/cfg/"), code)) << std::hex << code;
}

void fill_because_of_a_reader() {
    const Bound bound("/cfg/");
    ASSERT_EQ(0u, bound.code());
    cerrno code = 0;
    const unsigned made = change_until_failure(bound, code);
    EXPECT_GT(made, 10u);
    EXPECT_LT(made, kMostChanges);
    EXPECT_EQ(SYSDB_ERR_BUSY, code);
    EXPECT_EQ(made + 1, get_number(bound.handle(), "a")) << "reading goes on";
    for (unsigned i = 0; i < kMostChanges && code != SYSDB_ERR_NOT_FOUND; ++i) {
        code = sysdb_item_delete(bound.handle(), "other", 0);
        ASSERT_TRUE(code == 0 || code == SYSDB_ERR_BUSY || code == SYSDB_ERR_NOT_FOUND) << std::hex << code;
        if (code == SYSDB_ERR_BUSY) {
            break;
        }
    }
}

// Every program said that the database is full, and none said why: deleting did not help.
TEST(SysdbReaders, StoppedReaderThatFillsTheMapIsNamed) {
    const DatabaseSandbox sandbox;
    make_small_database();
    StoppedProcess reader([&sandbox] { begin_transaction(sandbox.cfg_file(), MDB_RDONLY); });
    const std::string log = run_small(fill_because_of_a_reader);
    EXPECT_HAS(log, "database " + sandbox.cfg_file() + " has no room, because process " + reader.number() +
                        " (the\\nholder), which is stopped, has read an old state for more than 50 ms");
    EXPECT_HAS(log, "kill -CONT " + reader.number() + ", or end it: kill -KILL " + reader.number());
    EXPECT_HAS_NOT(log, " is full");
    reader.go_on();
    run_small(expect_all_changes);
}

TEST(SysdbReaders, StoppedReaderThatIsKilledLeavesItsRoomAtOnce) {
    const DatabaseSandbox sandbox;
    make_small_database();
    StoppedProcess reader([&sandbox] { begin_transaction(sandbox.cfg_file(), MDB_RDONLY); });
    run_small(fill_because_of_a_reader);
    reader.kill_now();
    run_small(expect_all_changes);
}

// A change that finds the map full waits, as for a lock.
TEST(SysdbReaders, ReaderThatEndsInTimeFailsNoChange) {
    const DatabaseSandbox sandbox;
    make_small_database();
    Pipe ready;
    Pipe end;
    ForkedProcess reader([&] {
        begin_transaction(sandbox.cfg_file(), MDB_RDONLY);
        ready.put();
        end.take(-1);
    });
    ASSERT_TRUE(ready.take());
    static int pauses;
    run_small(
        [&end] {
            pauses = 0;
            on_pause() = [&end] {
                if (++pauses == 1) {
                    end.put();
                }
            };
            expect_all_changes();
            EXPECT_GT(pauses, 0);
        },
        "60000");
    end.put();  // also if nothing waited
    EXPECT_EQ(0, reader.wait());
}

// Its end would not make room: the reader reads the newest state.
TEST(SysdbReaders, MapThatIsFullOfItemsIsNotBlamedOnAReader) {
    const DatabaseSandbox sandbox;
    make_small_database();
    const auto fill = [] {
        const Bound bound("/cfg/");
        cerrno code = 0;
        for (unsigned i = 0; i < kMostChanges && code == 0; ++i) {
            code = set_text(bound.handle(), "much/" + std::to_string(i), std::string(3000, 'v'));
        }
        EXPECT_EQ(SYSDB_ERR_FULL, code);
    };
    run_small(fill);
    StoppedProcess reader([&sandbox] { begin_transaction(sandbox.cfg_file(), MDB_RDONLY); });
    const std::string log = run_small([] {
        const Bound bound("/cfg/");
        EXPECT_EQ(SYSDB_ERR_FULL, set_text(bound.handle(), "more", std::string(3000, 'v')));
        EXPECT_EQ(0u, sysdb_item_delete(bound.handle(), "much/1", 0)) << "from the reserve";
    });
    EXPECT_HAS(log, sandbox.cfg_file() + " is full; delete what is not needed");
    EXPECT_HAS_NOT(log, "kill -");
    reader.go_on();
}

// Nor would it for a value that needs more adjacent pages than there are: the many free ones are
// not adjacent, and the reader keeps few.
TEST(SysdbReaders, MapWithoutAdjacentPagesIsNotBlamedOnAReader) {
    const DatabaseSandbox sandbox;
    make_small_database();
    const auto scatter = [] {
        const Bound bound("/cfg/");
        unsigned items = 0;
        while (set_text(bound.handle(), "much/" + std::to_string(items), std::string(3000, 'v')) == 0) {
            ASSERT_LT(++items, kMostChanges);
        }
        for (unsigned i = 0; i < items; i += 2) {
            ASSERT_EQ(0u, sysdb_item_delete(bound.handle(), ("much/" + std::to_string(i)).c_str(), 0));
        }
    };
    run_small(scatter);
    StoppedProcess reader([&sandbox] { begin_transaction(sandbox.cfg_file(), MDB_RDONLY); });
    const std::string log = run_small([] {
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 2));
        EXPECT_EQ(SYSDB_ERR_FULL, set_text(bound.handle(), "large", std::string(290'000, 'v')));
    });
    EXPECT_HAS(log, sandbox.cfg_file() + " is full");
    EXPECT_HAS_NOT(log, "kill -");
    reader.go_on();
}

// ---- who the reader is

TEST(SysdbReaders, NumberOfAProcessThatDoesNotUseTheFileKeepsNothing) {
    const DatabaseSandbox sandbox;
    make_small_database();
    Pipe end;
    ForkedProcess innocent([&end] { end.take(-1); });
    StoppedProcess forger([&] { forge_reader(sandbox.cfg_file(), innocent.pid()); });
    const std::string log = run_small(expect_all_changes);
    EXPECT_HAS_NOT(log, "kill -");
    end.put();
    EXPECT_EQ(0, innocent.wait());
}

// The time limit was looked at only while the oldest reader stayed the same: a change waited
// for ever when another one was there at each look.
TEST(SysdbReaders, ReadersThatFollowEachOtherAreNotWaitedForWithoutEnd) {
    const DatabaseSandbox sandbox;
    make_small_database();
    StoppedProcess reader([&sandbox] { begin_transaction(sandbox.cfg_file(), MDB_RDONLY); });
    const std::string log = run_small([&] {
        auto *entry = reinterpret_cast<Entry *>(map_lock_file(sandbox.cfg_file()) + kFirstEntryAt);
        ASSERT_EQ(reader.pid(), entry->number);
        on_read() = [entry] { ++entry->thread; };
        cerrno code = 0;
        EXPECT_LT(change_until_failure(Bound("/cfg/"), code), kMostChanges);
        EXPECT_EQ(SYSDB_ERR_BUSY, code);
    });
    EXPECT_HAS(log, "has no room while so many processes read it; try again");
    reader.go_on();
}

// LMDB takes no entry with the number of its own process for that of a dead one.
TEST(SysdbReaders, ProcessThatWritesIsNotToldToEndItself) {
    const DatabaseSandbox sandbox;
    make_small_database();
    Pipe number;
    Pipe forged;
    ForkedProcess forger([&] {
        pid_t victim = 0;
        ASSERT_EQ(static_cast<ssize_t>(sizeof victim), read(number.reading_end(), &victim, sizeof victim));
        forge_reader(sandbox.cfg_file(), victim);
        forged.put();
        number.take(-1);
    });
    const std::string log = run_small([&] {
        const pid_t self = getpid();
        ASSERT_EQ(static_cast<ssize_t>(sizeof self), write(number.writing_end(), &self, sizeof self));
        ASSERT_TRUE(forged.take());
        fill_because_of_a_reader();
    });
    EXPECT_HAS(log, "-lock names a thread of this process, ");
    EXPECT_HAS_NOT(log, "kill -");
    number.put();
    EXPECT_EQ(0, forger.wait());
    run_small(expect_all_changes);  // the process has ended
}

// The table has the number that the process has in its container.
TEST(SysdbReaders, ReaderInAContainerIsNamedByItsNumberHere) {
    SKIP_WITHOUT_CONTAINERS();
    const DatabaseSandbox sandbox;
    make_small_database();
    Pipe number;
    Pipe end;
    ForkedProcess outside([&] {
        EXPECT_TRUE(run_in_container([&] {
            begin_transaction(sandbox.cfg_file(), MDB_RDONLY);
            char here[32] = "";  // /proc is the one from outside
            ASSERT_GT(readlink("/proc/self", here, sizeof here - 1), 0);
            const pid_t pid = std::atoi(here);
            ASSERT_EQ(static_cast<ssize_t>(sizeof pid), write(number.writing_end(), &pid, sizeof pid));
            end.take(-1);
        }));
    });
    pid_t pid = 0;
    ASSERT_EQ(static_cast<ssize_t>(sizeof pid), read(number.reading_end(), &pid, sizeof pid));
    ASSERT_GT(pid, 1);
    const std::string log = run_small(fill_because_of_a_reader);
    EXPECT_HAS(log, "because process " + std::to_string(pid) + " (");
    EXPECT_HAS(log, "kill -KILL " + std::to_string(pid));
    end.put();
    EXPECT_EQ(0, outside.wait());
}

TEST(SysdbReaders, ReaderOutsideOfTheContainerIsNotMistakenForAnotherProcess) {
    SKIP_WITHOUT_CONTAINERS();
    const DatabaseSandbox sandbox;
    make_small_database();
    StoppedProcess reader([&sandbox] { begin_transaction(sandbox.cfg_file(), MDB_RDONLY); });
    const std::string log = run_small([] { EXPECT_TRUE(run_in_container(fill_because_of_a_reader)); });
    EXPECT_HAS(log, "-lock names process " + reader.number() + ", which does not use it here");
    EXPECT_HAS(log, "fuser -v " + sandbox.cfg_file() + "-lock");
    EXPECT_HAS_NOT(log, "kill -");
    reader.go_on();
}

// ---- a table without a free entry

void take_all_entries(const std::string &file) {
    MDB_env *env = nullptr;
    int rc = mdb_env_create(&env);
    rc = rc != 0 ? rc : mdb_env_open(env, file.c_str(), MDB_NOSUBDIR | MDB_NOTLS, 0660);
    for (MDB_txn *txn = nullptr; rc == 0;) {
        rc = mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn);
    }
    if (rc != MDB_READERS_FULL) {
        _exit(1);
    }
}

// The user of a set-user-ID program can start it often enough. The log did not say how to find
// these processes.
TEST(SysdbReaders, FullTableOfReadersIsExplainedAndFreeWhenItsProcessDies) {
    const DatabaseSandbox sandbox;
    make_small_database();
    StoppedProcess reader([&sandbox] { take_all_entries(sandbox.cfg_file()); });
    const std::string log = run_small([] { EXPECT_EQ(SYSDB_ERR_BUSY, Bound("/cfg/").code()); });
    EXPECT_HAS(log, "has no room for another reader; end some of the AAA processes; as root, fuser -v " +
                        sandbox.cfg_file() + "-lock lists them");
    reader.kill_now();
    run_small(expect_all_changes);
}

// ---- this provider's own reads

// Whoever may hold up the log, as the caller of a program holds its standard error, filled the
// map: the view was open while the line was written.
void expect_nothing_kept_by_a_log_line(const char *item) {
    StoppedProcess reader([item] {
        const Bound bound("/cfg/");
        g_stops_at_a_log_line = true;
        get_text(bound.handle(), item);  // stops, and never gets here
        _exit(1);
    });
    const std::string log = run_small(expect_all_changes);
    EXPECT_HAS_NOT(log, "has no room");
    reader.kill_now();
}

TEST(SysdbReaders, ProcessThatStopsInALogLineKeepsNothing) {
    const DatabaseSandbox sandbox;
    make_small_database();
    expect_nothing_kept_by_a_log_line("a");  // is a number
}

TEST(SysdbReaders, ProcessThatStopsInALogLineAboutADefectKeepsNothing) {
    const DatabaseSandbox sandbox;
    make_small_database();
    run_forked([&sandbox] {
        aaatest::DatabaseTable items(sandbox.cfg_file(), "items");
        items.put("/cfg/defect", "");  // without a type
        items.commit();
    });
    expect_nothing_kept_by_a_log_line("defect");
}

}  // namespace
