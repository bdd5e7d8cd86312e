// SPDX-License-Identifier: Apache-2.0
//
// The clean mark: when the pages of a database are read at its opening, and when not. A
// damaged page shows it: it is noticed exactly when the pages are read. The damage leaves
// the file's time as it was, which no writer does.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "private_mounts.hpp"
#include "support/database_table.hpp"
#include "support/machine.hpp"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kFlagsAt = 10;
constexpr uint16_t kLeaf = 2;

void fill() {
    const Bound bound("/cfg/");
    for (unsigned i = 0; i < 300; ++i) {
        ASSERT_EQ(0u, set_text(bound.handle(), "fill/0x" + std::to_string(i), std::string(100, 'x')));
    }
}

// Overwrites the flags of the page with an item that no test reads or changes, in all its
// versions.
void damage_pages(const std::string &file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    const std::string bytes = text.str();
    const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    bool done = false;
    for (std::size_t page = 2 * kPage; page < bytes.size(); page += kPage) {
        uint16_t flags = 0;
        std::memcpy(&flags, &bytes[page + kFlagsAt], sizeof flags);
        if (flags == kLeaf && bytes.substr(page, kPage).find("fill/0x\003150") != std::string::npos) {
            done = pwrite(fd, "\xff\xff", 2, static_cast<off_t>(page + kFlagsAt)) == 2;
        }
    }
    close(fd);
    ASSERT_TRUE(done);
}

cerrno code_of_opening() {
    cerrno code = 0;
    int result[2];
    EXPECT_EQ(0, pipe(result));
    run_forked([&result] {
        setenv("AAA_LOG", "none", 1);
        const cerrno rc = Bound("/cfg/").code();
        EXPECT_EQ(static_cast<ssize_t>(sizeof rc), write(result[1], &rc, sizeof rc));
    });
    EXPECT_EQ(static_cast<ssize_t>(sizeof code), read(result[0], &code, sizeof code));
    close(result[0]);
    close(result[1]);
    return code;
}

class SysdbMark : public ::testing::Test {
  protected:
    void SetUp() override { run_forked(fill); }

    std::string file() const { return sandbox_.cfg_file(); }
    std::string mark() const { return file() + "-state"; }

    void change_once() {
        run_forked([] {
            const Bound bound("/cfg/");
            ASSERT_EQ(0u, bound.code());
            EXPECT_EQ(0u, set_number(bound.handle(), "changed", static_cast<uint32_t>(getpid())));
        });
    }

    void damage() {
        struct stat before;
        ASSERT_EQ(0, stat(file().c_str(), &before));
        damage_pages(file());
        const timespec times[] = {before.st_atim, before.st_mtim};
        ASSERT_EQ(0, utimensat(AT_FDCWD, file().c_str(), times, 0));
    }

    void expect_pages_unread() { EXPECT_EQ(0u, code_of_opening()); }
    void expect_pages_read() { EXPECT_EQ(SYSDB_ERR_CORRUPT, code_of_opening()); }

    const DatabaseSandbox sandbox_;
};

// Each login read the whole file.
TEST_F(SysdbMark, PagesAreNotReadAfterACleanEnd) {
    damage();
    expect_pages_unread();
}

TEST_F(SysdbMark, TransactionsOfManyProcessesKeepTheMark) {
    std::vector<ForkedProcess> writers;
    for (unsigned i = 0; i < 4; ++i) {
        writers.emplace_back([i] {
            const Bound bound("/cfg/");
            for (unsigned n = 0; n < 50; ++n) {
                EXPECT_EQ(0u, set_number(bound.handle(), "w" + std::to_string(i), n));
            }
        });
    }
    for (ForkedProcess &writer : writers) {
        EXPECT_EQ(0, writer.wait());
    }
    damage();
    expect_pages_unread();
}

TEST_F(SysdbMark, ProcessThatIsKilledBetweenTransactionsKeepsTheMark) {
    Pipe ready;
    ForkedProcess process([&ready] {
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_number(bound.handle(), "changed", 1));
        ready.put();
        pause();
    });
    ASSERT_TRUE(ready.take());
    process.kill_now();
    damage();
    expect_pages_unread();
}

// Whether the kernel tells this process the system calls of its child.
bool can_trace() {
    const pid_t pid = fork();
    if (pid == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
            raise(SIGSTOP);
        }
        _exit(0);
    }
    int status = 0;
    struct __ptrace_syscall_info info = {};
    const bool can = waitpid(pid, &status, 0) == pid && WIFSTOPPED(status) &&
                     ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD) == 0 &&
                     ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr) == 0 && waitpid(pid, &status, 0) == pid &&
                     WIFSTOPPED(status) && ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) > 0 &&
                     info.op == PTRACE_SYSCALL_INFO_ENTRY;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return can;
}

#define SKIP_WITHOUT_TRACING() SKIP_WITHOUT("tracing", can_trace(), "needs to trace a process")

// Kills a process when it is about to write for the n-th time in its transaction; false
// when it does not.
bool kill_at_write(unsigned n) {
    Pipe traced;
    const pid_t pid = fork();
    if (pid == 0) {
        const Bound bound("/cfg/");
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(1);
        }
        raise(SIGSTOP);
        set_number(bound.handle(), "killed", 1);
        _exit(2);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFSTOPPED(status)) {
        return false;
    }
    ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (n > 0 && ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr) == 0 && waitpid(pid, &status, 0) == pid &&
           WIFSTOPPED(status)) {
        struct __ptrace_syscall_info info = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) > 0 &&
            info.op == PTRACE_SYSCALL_INFO_ENTRY && info.entry.nr == SYS_pwritev) {
            --n;
        }
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return n == 0;
}

// The first write is of the pages, the second of the head, after which the mark follows.
TEST_F(SysdbMark, PagesAreReadOnceAfterAKilledWriter) {
    SKIP_WITHOUT_TRACING();
    ASSERT_TRUE(kill_at_write(2));
    damage();
    expect_pages_read();
}

TEST_F(SysdbMark, OneReadingAfterAKilledWriterIsEnough) {
    SKIP_WITHOUT_TRACING();
    ASSERT_TRUE(kill_at_write(2));
    EXPECT_EQ(0u, code_of_opening());
    damage();
    expect_pages_unread();
    run_forked([] {
        const Bound bound("/cfg/");
        EXPECT_EQ(SYSDB_ERR_NOT_FOUND, existence(bound.handle(), "killed"));
    });
}

// A process that was open before cannot know what the killed one did.
TEST_F(SysdbMark, TransactionAfterAKilledWriterDoesNotRenewTheMark) {
    SKIP_WITHOUT_TRACING();
    Pipe ready;
    Pipe killed;
    ForkedProcess older([&] {
        const Bound bound("/cfg/");
        ready.put();
        ASSERT_TRUE(killed.take());
        EXPECT_EQ(0u, set_number(bound.handle(), "changed", 1));
    });
    ASSERT_TRUE(ready.take());
    EXPECT_TRUE(kill_at_write(2));
    killed.put();
    EXPECT_EQ(0, older.wait());
    damage();
    expect_pages_read();
}

TEST_F(SysdbMark, PagesAreReadAfterAChangeByAnotherProgram) {
    run_forked([this] { aaatest::put_row(file(), "items", "/cfg/foreign", std::string("\1\0\0\0abcd", 8)); });
    damage();
    expect_pages_read();
}

TEST_F(SysdbMark, PagesOfACopyAreRead) {
    damage();
    fs::copy_file(file(), file() + ".copy");
    fs::rename(file() + ".copy", file());
    expect_pages_read();
}

TEST_F(SysdbMark, PagesAreReadWhenTheTimeHasChanged) {
    damage();
    ASSERT_EQ(0, utimensat(AT_FDCWD, file().c_str(), nullptr, 0));
    expect_pages_read();
}

TEST_F(SysdbMark, MarkThatIsDamagedCountsForNothing) {
    for (const std::size_t at : {0U, 8U, 60U, 100U}) {
        std::fstream bytes(mark(), std::ios::binary | std::ios::in | std::ios::out);
        bytes.seekp(static_cast<std::streamoff>(at));
        bytes.put('\x7f');
        bytes.close();
        EXPECT_EQ(0u, code_of_opening());
    }
    fs::resize_file(mark(), 10);
    damage();
    expect_pages_read();
}

TEST_F(SysdbMark, MarkThatCannotBeWrittenIsNoError) {
    fs::remove(mark());
    ASSERT_TRUE(fs::create_directory(mark()));
    EXPECT_EQ(0u, code_of_opening());
    change_once();
    damage();
    expect_pages_read();
}

TEST_F(SysdbMark, MissingMarkIsMade) {
    fs::remove(mark());
    EXPECT_EQ(0u, code_of_opening());
    EXPECT_TRUE(fs::is_regular_file(mark()));
    change_once();
    damage();
    expect_pages_unread();
}

// Where files have coarse times, the change is in the same step of the clock as the
// transaction before it.
TEST(SysdbMarkTime, ChangeRightAfterATransactionIsNoticed) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    fs::create_directory(sandbox.root() + "/cfg");
    run_forked([&sandbox] {
        ASSERT_TRUE(enter_private_mounts());
        for (unsigned i = 0; i < 20; ++i) {
            ASSERT_TRUE(mount_simple_memory(sandbox.root() + "/cfg"));
            run_forked([&sandbox] {
                fill();
                damage_pages(sandbox.cfg_file());
            });
            EXPECT_EQ(SYSDB_ERR_CORRUPT, code_of_opening()) << i;
        }
    });
}

// A failed transaction leaves pages that belong to none.
TEST_F(SysdbMark, WriteThatFailsKeepsTheMark) {
    run_forked([] {
        const Bound bound("/cfg/");
        const rlimit limit = {fs::file_size(std::string(getenv("AAA_SYSDB_CFG_DIR")) + "/cfg.mdb") + 8192,
                              RLIM_INFINITY};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        EXPECT_EQ(SYSDB_ERR_FULL, set_text(bound.handle(), "large", std::string(200'000, 'v')));
    });
    damage();
    expect_pages_unread();
}

}  // namespace
