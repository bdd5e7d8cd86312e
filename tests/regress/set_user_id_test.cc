// SPDX-License-Identifier: Apache-2.0
//
// The caller of a set-user-ID program chooses its arguments, its environment and its
// terminal. A copy of a real program gets root's rights in a file system of its own, and
// another user runs it.

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/log_socket.hpp"
#include "support/machine.hpp"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr uid_t kCaller = 65534;
constexpr int kReport = 3;

struct Call {
    std::string action;
    std::string name = "program";  // the first argument
    std::vector<std::string> environment;
    bool privileged = true;
    std::function<void()> prepare;  // in the process's mount namespace
};

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> out;
    for (std::string &text : texts) {
        out.push_back(text.data());
    }
    out.push_back(nullptr);
    return out;
}

[[noreturn]] void end(const char *what) {
    dprintf(kReport, "%s: %s", what, strerror(errno));
    _exit(1);
}

// Another directory than the temporary one, whose file system may not allow the bit.
std::string copy_of_program(const std::string &dir, bool privileged) {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", dir.c_str(), "tmpfs", 0, "mode=0755") != 0) {
        end("no file system of its own");
    }
    const std::string copy = dir + "/program";
    std::error_code error;
    if (!std::filesystem::copy_file(SET_USER_ID_PROGRAM, copy, error) ||
        chmod(copy.c_str(), privileged ? 04755 : 0755) != 0) {
        end("no copy of the program");
    }
    return copy;
}

[[noreturn]] void become_caller_and_run(const std::string &dir, Call call) {
    const std::string program = copy_of_program(dir, call.privileged);
    // The provider of an installed package: its database must not be touched.
    mount("tmpfs", AAA_PKG_ROOT, "tmpfs", 0, "mode=0755");
    if (call.prepare) {
        call.prepare();
    }
    if (setgroups(0, nullptr) != 0 || setresgid(kCaller, kCaller, kCaller) != 0 ||
        setresuid(kCaller, kCaller, kCaller) != 0) {
        end("no other user");
    }
    std::vector<std::string> arguments = {call.name, call.action};
    close_range(kReport + 1, ~0u, 0);
    call.environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");  // needs to trace the process
    execve(program.c_str(), pointers(arguments).data(), pointers(call.environment).data());
    end("not started");
}

// The program's report.
std::string run(const Call &call) {
    const TempDir dir;
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        return "no pipe";
    }
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(report[1], kReport);
        if (report[1] == kReport) {
            fcntl(kReport, F_SETFD, 0);
        }
        become_caller_and_run(dir.path(""), call);
    }
    close(report[1]);
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = read(report[0], buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<size_t>(n));
    }
    close(report[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return text + (status == 0 ? "" : ", status " + std::to_string(status));
}

struct SetUserId : testing::Test {
    void SetUp() override {
        SKIP_WITHOUT_ROOT("only root can make a set-user-ID program of root's");
        const pid_t pid = fork();
        if (pid == 0) {
            _exit(unshare(CLONE_NEWNS) == 0 ? 0 : 1);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        SKIP_WITHOUT("mounts", status == 0, "needs a mount namespace");
    }
};

// A directory whose "tty" names a file of an attacker's choice, and tells that it ran.
struct OtherTty {
    TempDir dir;
    OtherTty() {
        chmod(dir.path("").c_str(), 0777);
        dir.write("tty", "#!/bin/sh\n: > " + dir.path("ran") + "\necho /dev/null\n", 0755);
    }
    [[nodiscard]] bool ran() const { return access(dir.path("ran").c_str(), F_OK) == 0; }
    [[nodiscard]] std::string path() const { return "PATH=" + dir.path("") + ":/usr/bin:/bin"; }
};

}  // namespace

// A caller left a privileged program without its worker.
TEST_F(SetUserId, ProgramsHaveTheirWorkerWhateverTheCallerSets) {
    Call call;
    call.action = "worker";
    EXPECT_EQ("privileged: a worker", run(call));
    call.environment = {"NO_DLLMAIN=1"};
    EXPECT_EQ("privileged: a worker", run(call));
    call.privileged = false;
    EXPECT_EQ("ordinary: no worker", run(call));
}

// The caller's "tty" ran with root's rights and named the device that was opened.
TEST_F(SetUserId, ProgramsAskTheSystemsTty) {
    const OtherTty other;
    TerminalProcess child([&other] {
        Call call;
        call.action = "input";
        call.environment = {other.path()};
        return run(call);
    });
    child.expect_shown("password: ");
    child.type("secret\r");
    EXPECT_EQ("privileged: 0 \"secret\"", child.report());
    EXPECT_FALSE(other.ran());
}

// The caller decides how many descriptors there are; the system may lack the program.
TEST_F(SetUserId, ProgramsThatCannotAskTtyHaveNoInput) {
    const std::function<void()> hindrances[] = {
#ifndef __SANITIZE_ADDRESS__  // the sanitizers need a pipe to test an address
        [] {
            const rlimit limit{5, 5};  // two are needed, descriptor 4 is free
            if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
                end("no limit");
            }
        },
#endif
        [] {
            if (mount("/dev/null", "/usr/bin/tty", nullptr, MS_BIND, nullptr) != 0) {
                end("no other file");
            }
        },
    };
    for (const auto &hindrance : hindrances) {
        TerminalProcess child([&hindrance] {
            Call call;
            call.action = "input";
            call.prepare = hindrance;
            return run(call);
        });
        EXPECT_EQ("privileged: 0 \"\"", child.report());
        EXPECT_NE(std::string::npos, child.shown().find("popen fails")) << child.shown();
    }
}

TEST_F(SetUserId, OtherProgramsFindTtyThroughPath) {
    const OtherTty other;
    TerminalProcess child([&other] {
        Call call;
        call.action = "input";
        call.environment = {other.path()};
        call.privileged = false;
        return run(call);
    });
    EXPECT_EQ("ordinary: " + std::to_string(ENOTTY) + " \"\"", child.report());
    EXPECT_TRUE(other.ran());
}

TEST_F(SetUserId, ProgramsWithoutTerminalHaveNoInput) {
    TerminalProcess child(
        [] {
            Call call;
            call.action = "input";
            return run(call);
        },
        false);
    EXPECT_EQ("privileged: 0 \"\"", child.report());
}

// The caller's first argument became the name in the log, with line feeds.
TEST_F(SetUserId, ProgramsLogUnderTheNameOfTheirFile) {
    LogSocket log;
    const TempDir dir;
    const std::string devices = dir.path("");
    Call call;
    call.action = "log";
    call.name = "sshd[1]: Accepted password for root\n<83>sshd";
    call.environment = {"AAA_LOG=none", "AAA_SYSLOG_SOCKET=/nonexistent"};
    call.prepare = [&] {
        const std::string socket = devices + "/log";
        if (mount("tmpfs", devices.c_str(), "tmpfs", 0, "mode=0755") != 0 ||
            creat(socket.c_str(), 0600) < 0 ||
            mount(log.path().c_str(), socket.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
            mount(devices.c_str(), "/dev", nullptr, MS_MOVE, nullptr) != 0) {
            end("no log socket");
        }
    };
    EXPECT_EQ("privileged: logged", run(call));
    const auto lines = log.take();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("<83>program[", lines[0].substr(0, 12)) << lines[0];
}
