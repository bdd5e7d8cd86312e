// SPDX-License-Identifier: Apache-2.0
//
// A database file that was replaced is opened again when its last user has gone. Two
// threads meet there: the last user closes the old files, the next one opens the new ones.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <semaphore>
#include <string>
#include <thread>

#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

// The thread that stops before it closes the lock file.
std::atomic<pid_t> g_slow_thread{0};
std::binary_semaphore g_closing{0};
std::binary_semaphore g_may_close{0};

bool is_lock_file(int fd) {
    std::error_code error;
    const fs::path file = fs::read_symlink("/proc/self/fd/" + std::to_string(fd), error);
    return file.filename() == "cfg.mdb-lock";
}

}  // namespace

// The C library's is not called by the provider in this program.
extern "C" int close(int fd) {
    if (g_slow_thread == gettid() && is_lock_file(fd)) {
        g_slow_thread = 0;
        g_closing.release();
        g_may_close.acquire();
    }
    return static_cast<int>(syscall(SYS_close, fd));
}

namespace {

// A process of LMDB itself that keeps the writer's lock until it is told to end.
ForkedProcess keep_writer_lock(const std::string &file, Pipe &locked, Pipe &end) {
    ForkedProcess holder([&] {
        MDB_env *env = nullptr;
        MDB_txn *txn = nullptr;
        if (mdb_env_create(&env) != 0 || mdb_env_open(env, file.c_str(), MDB_NOSUBDIR, 0660) != 0 ||
            mdb_txn_begin(env, nullptr, 0, &txn) != 0) {
            _exit(1);
        }
        locked.put();
        end.take(-1);
        mdb_txn_abort(txn);
        mdb_env_close(env);
    });
    EXPECT_TRUE(locked.take());
    return holder;
}

// As a restore does it.
void replace(const std::string &file) {
    fs::copy_file(file, file + ".copy");
    fs::rename(file + ".copy", file);
}

// Whether another process sees the lock that every user of the lock file has.
bool is_locked(const std::string &file) {
    ForkedProcess other([&file] {
        const int fd = open((file + "-lock").c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_len = 1;
        _exit(fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type == F_UNLCK ? 1 : 0);
    });
    return other.wait() == 0;
}

// The new files were opened while the old ones were being closed. Closing the lock file
// dropped the lock of the new opening too, so the next process initialised the locks and
// the table of readers that this one was using.
TEST(SysdbClosing, NextUserWaitsUntilTheOldFilesAreClosed) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        setenv("AAA_SYSDB_WAIT_MS", "600000", 1);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 1));
        Pipe locked;
        Pipe end;
        ForkedProcess holder = keep_writer_lock(sandbox.cfg_file(), locked, end);
        std::binary_semaphore started{0};
        std::thread last_user([&] {
            g_slow_thread = gettid();
            started.release();
            EXPECT_EQ(0u, set_number(bound.handle(), "a", 2));
        });
        started.acquire();
        // Noticed within a second; from then on the old files have one user.
        replace(sandbox.cfg_file());
        while (get_number(bound.handle(), "a") == 1) {
        }
        end.put();
        g_closing.acquire();
        const int64_t meanwhile = get_number(bound.handle(), "a");
        g_may_close.release();
        last_user.join();
        EXPECT_EQ(0, holder.wait());
        EXPECT_LT(meanwhile, 0) << "two openings of one file";
        EXPECT_EQ(1, get_number(bound.handle(), "a")) << "the copy";
        EXPECT_TRUE(is_locked(sandbox.cfg_file()));
    });
}

}  // namespace
