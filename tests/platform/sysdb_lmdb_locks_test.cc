// SPDX-License-Identifier: Apache-2.0
//
// A process that is stopped while it holds a lock of the database. The others get a code
// after a limited time, and the log names the process, if it is one that can be the holder.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <lmdb.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

#include "support/sysdb.hpp"

namespace {

// The mutex of the table of readers follows two numbers at the start of the lock file.
constexpr std::size_t kReadersMutexAt = 8;
// Two more numbers follow, and the writer's mutex on the next cache line.
constexpr std::size_t kWritersMutexAt = (kReadersMutexAt + sizeof(pthread_mutex_t) + 16 + 63) / 64 * 64;

#define EXPECT_HAS(text, part)     EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)
#define EXPECT_HAS_NOT(text, part) EXPECT_EQ(std::string::npos, (text).find(part)) << "in: " << (text)

// A process that stops itself once it holds a lock. The program is not one of this
// project's: LMDB itself, as an older provider uses it.
class Holder {
  public:
    explicit Holder(const std::function<void()> &take)
        : process_([&take] {
              prctl(PR_SET_NAME, "the\nholder");
              take();
              raise(SIGSTOP);
              _exit(0);
          }) {
        int status = 0;
        EXPECT_EQ(pid(), waitpid(pid(), &status, WUNTRACED));
        EXPECT_TRUE(WIFSTOPPED(status));
    }
    pid_t pid() const { return process_.pid(); }
    std::string number() const { return std::to_string(pid()); }
    void go_on() {
        kill(pid(), SIGCONT);
        EXPECT_EQ(0, process_.wait());
    }
    void kill_now() { process_.kill_now(); }

  private:
    ForkedProcess process_;
};

MDB_env *open_database(const std::string &file) {
    MDB_env *env = nullptr;
    if (mdb_env_create(&env) != 0 || mdb_env_open(env, file.c_str(), MDB_NOSUBDIR, 0660) != 0) {
        _exit(1);
    }
    return env;
}

void begin_transaction(const std::string &file) {
    MDB_txn *txn = nullptr;
    if (mdb_txn_begin(open_database(file), nullptr, 0, &txn) != 0) {
        _exit(1);
    }
}

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

void make_database() {
    run_forked([] {
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 1));
    });
}

void expect_named(const std::string &log, const DatabaseSandbox &sandbox, const Holder &holder) {
    EXPECT_HAS(log, sandbox.cfg_file());
    EXPECT_HAS(log, "process " + holder.number() + " (the\\nholder), which is stopped,");
    EXPECT_HAS(log, "kill -CONT " + holder.number());
}

// ^Z in one login stopped the logins of everybody.
TEST(SysdbLocks, StoppedWriterIsNamedAndTheOthersGoOn) {
    const DatabaseSandbox sandbox;
    make_database();
    Holder holder([&sandbox] { begin_transaction(sandbox.cfg_file()); });
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, bound.code());
        EXPECT_EQ(SYSDB_ERR_BUSY, set_number(bound.handle(), "a", 2));
        EXPECT_EQ(SYSDB_ERR_BUSY, sysdb_item_delete(bound.handle(), "a", 0));
        EXPECT_EQ(1, get_number(bound.handle(), "a"));
    });
    expect_named(log, sandbox, holder);
    holder.go_on();
    run_forked([] {
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_number(bound.handle(), "a", 3));
    });
}

TEST(SysdbLocks, WriterThatIsKilledFreesTheLock) {
    const DatabaseSandbox sandbox;
    make_database();
    Pipe waiting;
    Holder holder([&sandbox] { begin_transaction(sandbox.cfg_file()); });
    ForkedProcess other([&waiting] {
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
    Holder holder([&sandbox] { lock_table_of_readers(sandbox.cfg_file()); });
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        EXPECT_EQ(SYSDB_ERR_BUSY, Bound("/cfg/").code());
    });
    expect_named(log, sandbox, holder);
    holder.go_on();
}

TEST(SysdbLocks, ProcessThatStoppedWhileItOpenedTheFileIsNamed) {
    const DatabaseSandbox sandbox;
    make_database();
    Holder holder([&sandbox] { lock_initialisation(sandbox.cfg_file()); });
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        EXPECT_EQ(SYSDB_ERR_BUSY, Bound("/cfg/").code());
        EXPECT_EQ(0u, Bound("/oper/").code());  // the other tree does not wait
    });
    expect_named(log, sandbox, holder);
    holder.go_on();
    run_forked([] { EXPECT_EQ(0u, Bound("/cfg/").code()); });
}

// What an administrator reads who looks for the reason of logins that fail.
std::string log_of_writer_in_vain() {
    return run_forked([] {
        setenv("AAA_SYSDB_WAIT_MS", "50", 1);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, bound.code());
        EXPECT_EQ(SYSDB_ERR_BUSY, set_number(bound.handle(), "a", 2));
    });
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
    Holder forger([&] {
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
    Holder forger([&] {
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
    Holder forger([&] {
        open_database(sandbox.cfg_file());
        forge_writer(sandbox.cfg_file(), kNoProcess);
    });
    expect_not_verified(log_of_writer_in_vain(), sandbox, kNoProcess, "does not exist here");
}

TEST(SysdbLocks, WaitThatIsNoNumberIsReported) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_WAIT_MS", "0", 1);
        EXPECT_EQ(0u, Bound("/cfg/").code());
    });
    EXPECT_HAS(log, "AAA_SYSDB_WAIT_MS=0 is not a number from 1 to 600000");
}

}  // namespace
