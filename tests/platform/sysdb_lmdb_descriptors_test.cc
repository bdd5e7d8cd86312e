// SPDX-License-Identifier: Apache-2.0
//
// The embedded provider's descriptors: in a process that has closed its own standard
// ones, and in one that starts programs meanwhile.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "support/sysdb.hpp"

namespace {

// What another thread does while a descriptor is made.
void (*g_meanwhile)() = nullptr;

}  // namespace

// The executable's one takes precedence in the provider.
extern "C" int epoll_create1(int flags) noexcept {
    if (g_meanwhile != nullptr) {
        g_meanwhile();
    }
    return static_cast<int>(syscall(SYS_epoll_create1, flags));
}

namespace {

constexpr int kStandard = 3;

void close_standard() {
    for (int fd = 0; fd < kStandard; ++fd) {
        close(fd);
    }
}

bool are_standard_closed() {
    for (int fd = 0; fd < kStandard; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) {
            return false;
        }
    }
    return true;
}

// Everything that the provider opens: both files, a channel, a socket and a timer.
bool use_everything(const Bound &cfg, const Bound &oper) {
    const auto ignore = [](const void *, void *, void *) -> int32_t { return 0; };
    uint64_t notification = 0;
    return cfg.code() == 0 && oper.code() == 0 && set_number(cfg.handle(), "a", 1) == 0 &&
           set_number(oper.handle(), "a", 1) == 0 &&
           _sysdb_register_notification(cfg.handle(), "a", 6, 1, ignore, nullptr, 0, nullptr, 0,
                                        &notification) == 0 &&
           set_number(cfg.handle(), "a", 2) == 0;
}

std::string contents(const std::string &file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

// A daemon's database was overwritten by the first line that it logged: the data file
// was descriptor 2.
TEST(SysdbDescriptors, LogLineOfAProcessWithoutStandardDescriptorsLeavesTheDatabaseAlone) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        close_standard();
        const Bound cfg("/cfg/");
        const Bound oper("/oper/");
        if (!use_everything(cfg, oper)) {
            _exit(2);
        }
        uint32_t type = SYSDB_TYPE_STRING;
        void *value = nullptr;
        uint32_t length = 0;
        // Logs a line, to standard error.
        if (sysdb_item_get(cfg.handle(), "a", &type, &value, &length, 0) != SYSDB_ERR_TYPE_MISMATCH ||
            write(STDERR_FILENO, "printed by the program", 22) >= 0) {
            _exit(3);
        }
        _exit(are_standard_closed() ? 0 : 4);
    });
    for (const std::string &file : {sandbox.cfg_file(), sandbox.oper_file(), sandbox.cfg_file() + "-lock"}) {
        EXPECT_EQ(std::string::npos, contents(file).find("%AAA")) << file;
    }
    run_forked([] {
        const Bound cfg("/cfg/");
        const Bound oper("/oper/");
        ASSERT_EQ(0u, cfg.code());
        ASSERT_EQ(0u, oper.code());
        EXPECT_EQ(2, get_number(cfg.handle(), "a"));
        EXPECT_EQ(1, get_number(oper.handle(), "a"));
    });
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasSanitizer = true;  // which opens pipes, with the numbers that are free
#else
constexpr bool kHasSanitizer = false;
#endif

// Not for a moment either: another thread prints while the files are opened.
TEST(SysdbDescriptors, ThreadThatPrintsDuringTheOpeningWritesNowhere) {
    const DatabaseSandbox sandbox;
    for (unsigned i = 0; i < repetitions("AAA_SYSDB_OPENINGS", 30); ++i) {
        run_forked([] {
            close_standard();
            signal(SIGPIPE, SIG_IGN);
            std::atomic<bool> printing{false};
            std::atomic<bool> stop{false};
            std::atomic<int> written{0};
            std::thread printer([&] {
                while (!stop) {
                    for (int fd = 0; fd < kStandard; ++fd) {
                        written += write(fd, "printed", 7) >= 0 ? 1 : 0;
                    }
                    printing = true;
                }
            });
            while (!printing) {
                std::this_thread::yield();
            }
            {
                const Bound cfg("/cfg/");
                const Bound oper("/oper/");
                if (!use_everything(cfg, oper)) {
                    _exit(2);
                }
            }
            stop = true;
            printer.join();
            _exit(written == 0 || kHasSanitizer ? 0 : 3);
        });
    }
    EXPECT_EQ(std::string::npos, contents(sandbox.cfg_file()).find("printed"));
    EXPECT_EQ(std::string::npos, contents(sandbox.oper_file()).find("printed"));
}

// A program that opens its standard descriptors meanwhile had them closed again.
TEST(SysdbDescriptors, StandardDescriptorsThatTheProgramSetsMeanwhileStayOpen) {
    const DatabaseSandbox sandbox;
    ForkedProcess process([] {
        const Bound oper("/oper/");
        if (oper.code() != 0) {
            _exit(2);
        }
        close_standard();
        g_meanwhile = [] {
            const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
            for (int fd = 0; fd < kStandard; ++fd) {
                dup2(null, fd);
            }
        };
        if (channel_of(oper.handle()) < kStandard) {
            _exit(3);
        }
        _exit(write(1, "x", 1) == 1 && write(2, "x", 1) == 1 && fcntl(0, F_GETFD) >= 0 ? 0 : 1);
    });
    EXPECT_EQ(0, process.wait());
}

// ---- programs that are started meanwhile

enum class Start { kSpawn, kVfork, kFork };

pid_t start_program(Start how) {
    static char program[] = SYSDB_INHERITED;
    char *arguments[] = {program, nullptr};
    char *environment[] = {nullptr};
    pid_t pid = -1;
    switch (how) {
        case Start::kSpawn:
            return posix_spawn(&pid, program, nullptr, nullptr, arguments, environment) == 0 ? pid : -1;
        case Start::kVfork:
            pid = vfork();
            break;
        case Start::kFork:
            pid = fork();
            break;
    }
    if (pid == 0) {
        execve(program, arguments, environment);
        _exit(127);
    }
    return pid;
}

// Programs start while a thread opens the files for the first time. The exit status is
// the number of those that inherited something.
[[noreturn]] void start_while_opening(unsigned programs, Start how) {
    for (int fd = kStandard; fd < 256; ++fd) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);  // those of the caller of the test
    }
    std::atomic<bool> opening{false};
    std::thread opener([&opening] {
        opening = true;
        const Bound cfg("/cfg/");
        const Bound oper("/oper/");
        if (!use_everything(cfg, oper)) {
            _exit(100);
        }
    });
    while (!opening) {
        std::this_thread::yield();
    }
    int inherited = 0;
    for (unsigned i = 0; i < programs; ++i) {
        int status = -1;
        const pid_t pid = start_program(how);
        if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) > 1) {
            _exit(101);
        }
        inherited += WEXITSTATUS(status);
    }
    opener.join();
    _exit(inherited);
}

// Programs inherited the data file, open for writing. AAA_SYSDB_STARTS sets the number.
TEST(SysdbDescriptors, ProgramsStartedDuringTheOpeningInheritNothing) {
    const DatabaseSandbox sandbox;
    constexpr unsigned kEach = 2;
    const unsigned starts = repetitions("AAA_SYSDB_STARTS", 600);
    unsigned started[3] = {};
    for (unsigned i = 0; i < starts / kEach; ++i) {
        const Start how = i % 4 == 3 ? Start::kFork : i % 4 == 2 ? Start::kVfork : Start::kSpawn;
        ForkedProcess process([how] { start_while_opening(kEach, how); });
        ASSERT_EQ(0, process.wait()) << i;
        started[static_cast<int>(how)] += kEach;
    }
    std::printf(
        "started while files were opened: %u with posix_spawn, %u with vfork, %u with fork; inherited: 0\n",
        started[0], started[1], started[2]);
}

// Each child keeps what it inherited, and opens the files again.
void use_in_generations(unsigned generations) {
    const Bound bound("/cfg/");
    ASSERT_EQ(0u, set_number(bound.handle(), "generation", generations));
    if (generations > 0) {
        ForkedProcess child([generations] { use_in_generations(generations - 1); });
        EXPECT_EQ(0, child.wait());
    }
}

TEST(SysdbDescriptors, ChildrenOfChildrenUseTheDatabase) {
    const DatabaseSandbox sandbox;
    run_forked([] { use_in_generations(40); });
    run_forked([] { EXPECT_EQ(0, get_number(Bound("/cfg/").handle(), "generation")); });
}

}  // namespace
