// SPDX-License-Identifier: Apache-2.0
//
// A process that stops itself in the middle of its use of a database. The program is not one
// of this project's: LMDB itself, as an older provider uses it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "support/machine.hpp"
#include "support/sysdb.hpp"
#include "support/time_limit.h"

class StoppedProcess {
  public:
    explicit StoppedProcess(const std::function<void()> &take)
        : process_([&take] {
              set_time_limit("the process that is to stop itself");
              prctl(PR_SET_NAME, "the\nholder");
              take();
              lift_time_limit();
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

inline MDB_env *open_database(const std::string &file) {
    MDB_env *env = nullptr;
    if (mdb_env_create(&env) != 0 || mdb_env_open(env, file.c_str(), MDB_NOSUBDIR, 0660) != 0) {
        _exit(1);
    }
    return env;
}

// flags: 0 for a transaction that holds the writer's lock, MDB_RDONLY for one that reads.
inline void begin_transaction(const std::string &file, unsigned flags = 0) {
    MDB_txn *txn = nullptr;
    if (mdb_txn_begin(open_database(file), nullptr, flags, &txn) != 0) {
        _exit(1);
    }
}

// The entries of the table follow the two mutexes and what belongs to them.
inline constexpr std::size_t kFirstEntryAt = 128;
struct Entry {
    std::uint64_t txnid;
    std::int32_t number;
    std::uint64_t thread;
};

inline char *map_lock_file(const std::string &file) {
    const int fd = open((file + "-lock").c_str(), O_RDWR | O_CLOEXEC);
    void *map = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED) {
        _exit(1);
    }
    return static_cast<char *>(map);
}

// As a member of the group can write it: its own entry is that of another process.
inline void forge_reader(const std::string &file, pid_t number) {
    begin_transaction(file, MDB_RDONLY);
    auto *entry = reinterpret_cast<Entry *>(map_lock_file(file) + kFirstEntryAt);
    if (entry->number != getpid()) {
        _exit(1);
    }
    entry->number = number;
}

// Runs a body as the first process of a container of its own, whose number there is 1, and
// waits for its end. True when the body ended with 0.
inline bool run_in_container(const std::function<void()> &body) {
    if (unshare(CLONE_NEWPID) != 0) {
        return false;
    }
    ForkedProcess first([&body] {
        set_time_limit("the process in a container");
        body();
    });
    return first.wait() == 0;
}

inline bool has_containers() {
    ForkedProcess probe([] { _exit(run_in_container([] {}) ? 0 : 1); });
    return probe.wait() == 0;
}

#define SKIP_WITHOUT_CONTAINERS() SKIP_WITHOUT("containers", has_containers(), "needs a pid namespace")
