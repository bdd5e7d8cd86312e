// SPDX-License-Identifier: Apache-2.0
//
// The embedded provider without room: full file systems, limits, and maps of different
// sizes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "private_mounts.hpp"
#include "support/sysdb.hpp"

namespace {

// Calls that a signal interrupts from now on.
int g_interruptions = 0;

}  // namespace

// The executable's one takes precedence in the provider.
extern "C" int fallocate(int fd, int mode, off_t offset, off_t length) {
    if (g_interruptions > 0) {
        --g_interruptions;
        errno = EINTR;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fallocate, fd, mode, offset, length));
}

namespace {

namespace fs = std::filesystem;

#define EXPECT_HAS(text, part) EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)

// Takes all space of a file system.
void fill_up(const std::string &file) {
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    for (std::size_t size : {65536U, 4096U, 1U}) {
        const std::string bytes(size, 'x');
        while (write(fd, bytes.data(), size) == static_cast<ssize_t>(size)) {
        }
    }
    close(fd);
}

// Stores items until one does not fit; the code of that one.
cerrno store_until_full(const Bound &bound, unsigned &stored) {
    const std::string value(20000, 'v');
    for (stored = 0; stored < 2000; ++stored) {
        const cerrno rc = set_text(bound.handle(), "much/" + std::to_string(stored), value);
        if (rc != 0) {
            return rc;
        }
    }
    return 0;
}

// On a full disk: a code, everything that was stored before, and after making room all
// works again.
void fill_and_recover(const std::string &tree, const std::string &ballast) {
    const std::string value(20000, 'v');
    const Bound bound(tree);
    ASSERT_EQ(0u, set_text(bound.handle(), "before", "kept"));
    unsigned stored = 0;
    fill_up(ballast);
    fs::resize_file(ballast, fs::file_size(ballast) - 300 * 1024);
    EXPECT_EQ(SYSDB_ERR_FULL, store_until_full(bound, stored));
    EXPECT_GT(stored, 2u);
    EXPECT_EQ("kept", get_text(bound.handle(), "before"));
    run_forked([&] {
        const Bound other(tree);
        ASSERT_EQ(0u, other.code());
        EXPECT_EQ("kept", get_text(other.handle(), "before"));
        for (unsigned i = 0; i < stored; ++i) {
            EXPECT_EQ(value, get_text(other.handle(), "much/" + std::to_string(i)));
        }
    });
    fs::remove(ballast);
    EXPECT_EQ(0u, set_text(bound.handle(), "much/" + std::to_string(stored), value));
}

// Every process that loaded the library was killed: the lock file had no blocks, and its
// first use was a signal.
TEST(SysdbRoom, FullFileSystemIsACodeBeforeTheFirstUse) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    fs::create_directory(sandbox.root() + "/run");
    const std::string log = run_forked([&sandbox] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_TRUE(mount_memory(sandbox.root() + "/run", "size=16k,mode=0700"));
        EXPECT_EQ(SYSDB_ERR_FULL, Bound("/oper/").code());
        EXPECT_EQ(0u, Bound("/cfg/").code());
    });
    EXPECT_HAS(log, "oper.mdb");
    EXPECT_HAS(log, "cannot grow: No space left on device");
    EXPECT_HAS(log, sandbox.root() + "/run (tmpfs) has ");
    EXPECT_HAS(log, "of 16 KiB free");
}

TEST(SysdbRoom, LockFileWithoutBlocksIsFilledOrRefused) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    fs::create_directory(sandbox.root() + "/run");
    run_forked([&sandbox] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_TRUE(mount_memory(sandbox.root() + "/run", "size=256k,mode=0700"));
        const auto make_sparse = [&sandbox] {
            const std::string lock = sandbox.oper_file() + "-lock";
            const auto size = fs::file_size(lock);
            fs::resize_file(lock, 0);
            fs::resize_file(lock, size);
        };
        run_forked([] { EXPECT_EQ(0u, Bound("/oper/").code()); });
        make_sparse();
        fill_up(sandbox.root() + "/run/ballast");
        run_forked([] { EXPECT_EQ(SYSDB_ERR_FULL, Bound("/oper/").code()); });
        fs::remove(sandbox.root() + "/run/ballast");
        make_sparse();
        run_forked([&sandbox] {
            const Bound bound("/oper/");
            EXPECT_EQ(0u, bound.code());
            struct stat status;
            ASSERT_EQ(0, stat((sandbox.oper_file() + "-lock").c_str(), &status));
            EXPECT_GE(status.st_blocks * 512, status.st_size);
            fill_up(sandbox.root() + "/run/ballast");
            std::vector<ForkedProcess> readers;  // they use further parts of the table
            for (int i = 0; i < 80; ++i) {
                readers.emplace_back([] {
                    const Bound own("/oper/");
                    EXPECT_EQ(SYSDB_ERR_NOT_FOUND, existence(own.handle(), "missing"));
                });
            }
            for (ForkedProcess &reader : readers) {
                EXPECT_EQ(0, reader.wait());
            }
        });
    });
}

// A process with a timer could not open the database: memory file systems end the
// reservation of space when a signal arrives.
TEST(SysdbRoom, ReservationGoesOnAfterASignal) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        g_interruptions = 3;
        EXPECT_EQ(0u, Bound("/oper/").code());
        EXPECT_EQ(0, g_interruptions);
    });
}

TEST(SysdbRoom, TruncatedLockFileIsACode) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        const Bound bound("/oper/");
        ASSERT_EQ(0u, bound.code());
        fs::resize_file(sandbox.oper_file() + "-lock", 100);
        // Not this process, whose map has lost its pages.
        ForkedProcess other([] { EXPECT_EQ(SYSDB_ERR_STORAGE, Bound("/oper/").code()); });
        EXPECT_EQ(0, other.wait());
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    });
}

TEST(SysdbRoom, FullMemoryFileSystemLosesNothing) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    fs::create_directory(sandbox.root() + "/run");
    const std::string log = run_forked([&sandbox] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_TRUE(mount_memory(sandbox.root() + "/run", "size=4m,mode=0700"));
        fill_and_recover("/oper/", sandbox.root() + "/run/ballast");
    });
    EXPECT_HAS(log, "oper.mdb cannot grow: No space left on device");
    EXPECT_HAS(log, sandbox.root() + "/run (tmpfs) has ");
    EXPECT_HAS(log, "free some space there");
}

TEST(SysdbRoom, FullDiskLosesNothing) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    fs::create_directory(sandbox.root() + "/cfg");
    const std::string image = sandbox.root() + "/image";
    const std::string make = "truncate -s 16M " + image + " && mkfs.ext4 -q -F " + image + " >/dev/null 2>&1";
    const std::string attach = "mount -o loop " + image + " " + sandbox.root() + "/cfg 2>/dev/null";
    ForkedProcess probe([&] {
        _exit(enter_private_mounts() && std::system(make.c_str()) == 0 && std::system(attach.c_str()) == 0
                  ? 0
                  : 1);
    });
    SKIP_WITHOUT("loop", probe.wait() == 0, "needs mkfs.ext4 and a loop device");
    const std::string log = run_forked([&] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_EQ(0, std::system(attach.c_str()));
        ASSERT_EQ(0, chmod((sandbox.root() + "/cfg").c_str(), 0700));
        fill_and_recover("/cfg/", sandbox.root() + "/cfg/ballast");
    });
    EXPECT_HAS(log, "cfg.mdb cannot grow: No space left on device");
    EXPECT_HAS(log, sandbox.root() + "/cfg (ext4) has ");
}

TEST(SysdbRoom, DatabaseOnAReadOnlyFileSystemCanBeRead) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    const std::string directory = sandbox.root() + "/cfg";
    fs::create_directory(directory);
    run_forked([&] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_TRUE(mount_memory(directory, "size=1m,mode=0700"));
        run_forked([] {
            const Bound bound("/cfg/");
            EXPECT_EQ(0u, set_number(bound.handle(), "a", 1));
        });
        fs::remove(sandbox.cfg_file() + "-lock");
        ASSERT_EQ(0, mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
        const Bound bound("/cfg/");
        EXPECT_EQ(1, get_number(bound.handle(), "a"));
        EXPECT_EQ(SYSDB_ERR_READ_ONLY, set_number(bound.handle(), "a", 2));
    });
}

// The limit's signal, which programs do not expect, ended the process.
TEST(SysdbRoom, LimitOfFileSizesIsACode) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_text(bound.handle(), "before", "kept"));
        const rlimit limit = {250'000, RLIM_INFINITY};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        unsigned stored = 0;
        EXPECT_EQ(SYSDB_ERR_FULL, store_until_full(bound, stored));
        EXPECT_EQ(SYSDB_ERR_FULL, set_text(bound.handle(), "more", std::string(20000, 'w')));
        EXPECT_EQ("kept", get_text(bound.handle(), "before"));
        sigset_t pending;
        sigpending(&pending);
        EXPECT_EQ(0, sigismember(&pending, SIGXFSZ));
    });
    EXPECT_HAS(log, "cfg.mdb cannot grow: File too large");
    EXPECT_HAS(log, "ulimit -f");
}

// A process stayed full after another one had enlarged the map.
TEST(SysdbRoom, FullProcessFollowsALargerMap) {
    const DatabaseSandbox sandbox;
    Pipe is_full;
    Pipe has_grown;
    ForkedProcess small([&] {  // before this process, which reads the settings once
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);
        const Bound bound("/cfg/");
        unsigned stored = 0;
        ASSERT_EQ(SYSDB_ERR_FULL, store_until_full(bound, stored));
        is_full.put();
        ASSERT_TRUE(has_grown.take());
        EXPECT_EQ(0u, set_text(bound.handle(), "more", std::string(20000, 'w')));
        EXPECT_EQ(1, get_number(bound.handle(), "a"));
    });
    ASSERT_TRUE(is_full.take());
    run_forked([] {
        setenv("AAA_SYSDB_MAP_MIB", "2", 1);
        const Bound large("/cfg/");
        EXPECT_EQ(0u, set_number(large.handle(), "a", 1));
    });
    has_grown.put();
    EXPECT_EQ(0, small.wait());
}

TEST(SysdbRoom, ProcessesWithMixedMapSizesAllGoOn) {
    const DatabaseSandbox sandbox;
    static constexpr unsigned kProcesses = 4;
    static constexpr unsigned kEach = 60;  // 1.2 MB: together more than any but the largest map
    std::vector<ForkedProcess> writers;
    for (unsigned i = 0; i < kProcesses; ++i) {
        writers.emplace_back([i] {
            setenv("AAA_SYSDB_MAP_MIB", std::to_string(1 << i).c_str(), 1);
            const Bound bound("/cfg/");
            ASSERT_EQ(0u, bound.code());
            const std::string value(20000, static_cast<char>('a' + i));
            for (unsigned n = 0; n < kEach;) {
                const std::string path = std::to_string(i) + "/" + std::to_string(n);
                const cerrno rc = set_text(bound.handle(), path, value);
                // Full until the process with the largest map has made its first change.
                ASSERT_TRUE(rc == 0 || rc == SYSDB_ERR_FULL) << std::hex << rc;
                n += rc == 0 ? 1 : 0;
            }
        });
    }
    for (ForkedProcess &writer : writers) {
        EXPECT_EQ(0, writer.wait());
    }
    run_forked([] {
        const Bound bound("/cfg/");
        for (unsigned i = 0; i < kProcesses; ++i) {
            EXPECT_EQ(kEach, names_in(bound.handle(), std::to_string(i) + "/").size());
        }
    });
}

}  // namespace
