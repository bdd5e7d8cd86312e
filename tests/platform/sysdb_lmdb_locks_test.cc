// SPDX-License-Identifier: Apache-2.0
//
// A process that is stopped while it holds a lock of the database. The others get a code
// after a limited time, and the log names the process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "support/sysdb.hpp"

namespace {

// The mutex of the table of readers follows two numbers at the start of the lock file.
constexpr std::size_t kReadersMutexAt = 8;

#define EXPECT_HAS(text, part) EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)

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

void lock_table_of_readers(const std::string &file) {
    open_database(file);
    const int fd = open((file + "-lock").c_str(), O_RDWR | O_CLOEXEC);
    void *map = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED || pthread_mutex_lock(reinterpret_cast<pthread_mutex_t *>(static_cast<char *>(map) +
                                                                                    kReadersMutexAt)) != 0) {
        _exit(1);
    }
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

TEST(SysdbLocks, WaitThatIsNoNumberIsReported) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_WAIT_MS", "0", 1);
        EXPECT_EQ(0u, Bound("/cfg/").code());
    });
    EXPECT_HAS(log, "AAA_SYSDB_WAIT_MS=0 is not a number from 1 to 600000");
}

}  // namespace
