// SPDX-License-Identifier: Apache-2.0
//
// An aaactl that runs while the test does other things: with its output in a
// pipe, or in a terminal that the test controls.

#pragma once

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "aaactl/support/json_schema.hpp"
#include "aaactl/support/program_run.hpp"
#include "support/send_signal.hpp"

namespace aaactl_test {

class Started {
  public:
    enum class On { pipe, terminal, full_disk };

    explicit Started(const std::vector<std::string> &args, On on = On::pipe) : args_(args), on_(on) {
        std::vector<char *> argv{const_cast<char *>(AAACTL_PROGRAM)};
        for (const std::string &arg : args) {
            argv.push_back(const_cast<char *>(arg.c_str()));
        }
        argv.push_back(nullptr);
        int out[2] = {-1, -1};
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        pid_ = on == On::terminal ? forkpty(&fd_, nullptr, nullptr, nullptr) : fork();
        if (pid_ == 0) {
            unsetenv("NO_DLLMAIN");  // as users run it
            setenv("AAA_SYSDB_PROVIDER", AAACTL_PROVIDER, 0);
            setenv("AAA_LOG", "none", 0);
            if (on != On::terminal) {
                dup2(out[1], 1);
            }
            if (on == On::full_disk) {  // the pipe shows when it ends
                dup2(out[1], 2);
                dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), 1);
            }
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        if (on == On::terminal) {
            close(out[0]);
        } else {
            fd_ = out[0];
        }
    }
    ~Started() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(fd_);
    }
    Started(const Started &) = delete;
    Started &operator=(const Started &) = delete;

    pid_t pid() const { return pid_; }
    // Everything that it has printed so far.
    const std::string &shown() const { return shown_; }

    void type(const std::string &keys) const {
        EXPECT_EQ(write(fd_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Waits for output at most so long and reads it; false at the end and if nothing came.
    bool read_some(int milliseconds) {
        pollfd ready{fd_, POLLIN, 0};
        char buffer[4096];
        const ssize_t n = poll(&ready, 1, milliseconds) == 1 ? read(fd_, buffer, sizeof buffer) : -1;
        shown_.append(buffer, n > 0 ? static_cast<size_t>(n) : 0);
        return n > 0;
    }
    // The same, and whether that was the end.
    bool has_ended(int milliseconds) {
        pollfd ready{fd_, POLLIN, 0};
        return !read_some(milliseconds) && poll(&ready, 1, 0) == 1;
    }
    bool wait_shown(const std::string &text) {
        while (shown_.find(text) == std::string::npos) {
            if (!read_some(60000)) {
                return false;
            }
        }
        return true;
    }
    // Reads to the end; the exit status, or 128 + the signal's number.
    int wait() {
        while (read_some(60000)) {
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        if (on_ == On::pipe) {
            expect_documented(args_, shown_);
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    int end(int signal) {
        aaatest::send_signal(pid_, signal);
        return wait();
    }

  private:
    std::vector<std::string> args_;
    On on_;
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string shown_;
};

}  // namespace aaactl_test
