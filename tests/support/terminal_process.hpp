// SPDX-License-Identifier: Apache-2.0
//
// Runs part of a test in a child process whose controlling terminal is a new
// pseudo-terminal, with the test at the other end. The child sends its
// report through a separate pipe.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "support/send_signal.hpp"

class TerminalProcess {
  public:
    // The body's text is the report. With with_terminal false the child has no
    // controlling terminal, and its standard input is empty.
    explicit TerminalProcess(const std::function<std::string()> &body, bool with_terminal = true) {
        int slave = -1;
        char name[64] = "";
        int report[2];
        if (openpty(&master_, &slave, name, nullptr, nullptr) != 0 || pipe2(report, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "no pseudo-terminal: " << strerror(errno);
            return;
        }
        line_ = std::string(name).substr(std::strlen("/dev/"));
        tcgetattr(slave, &settings_at_start_);
        fflush(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            close(master_);
            become_session(slave, with_terminal);
            const std::string text = body();
            if (write(report[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
                _exit(3);
            }
            exit(0);  // not _exit(): coverage and leaks of the child count too
        }
        close(report[1]);
        report_ = report[0];
        slave_ = slave;
    }

    ~TerminalProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        for (const int fd : {master_, report_, slave_}) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }

    TerminalProcess(const TerminalProcess &) = delete;
    TerminalProcess &operator=(const TerminalProcess &) = delete;

    // Terminal's name without "/dev/".
    [[nodiscard]] const std::string &line() const { return line_; }
    [[nodiscard]] pid_t pid() const { return pid_; }

    void type(const std::string &keys) {
        ASSERT_EQ(static_cast<ssize_t>(keys.size()), write(master_, keys.data(), keys.size()));
    }

    // Reads the child's output until the text has appeared.
    void expect_shown(const std::string &text) {
        while (shown_.find(text) == std::string::npos) {
            if (!read_some()) {
                FAIL() << "\"" << text << "\" was not shown, but: " << shown_;
            }
        }
    }

    [[nodiscard]] const std::string &shown() const { return shown_; }

    // The terminal's settings before the child ran, which may change them at once.
    [[nodiscard]] const termios &settings_at_start() const { return settings_at_start_; }

    // The current settings. Once the child runs, only its output or its report
    // tells which ones to expect.
    [[nodiscard]] termios settings() const {
        termios t{};
        tcgetattr(slave_, &t);
        return t;
    }

    // Whether the child has reported or ended; report() does not wait then.
    [[nodiscard]] bool has_reported() const {
        pollfd fd{report_, POLLIN, 0};
        return poll(&fd, 1, 0) != 0;
    }

    // Waits for the child's report. The terminal is read meanwhile, so that the
    // child cannot get stuck on a full one.
    std::string report() {
        std::string text;
        char buffer[4096];
        for (;;) {
            pollfd fds[2] = {{report_, POLLIN, 0}, {master_, POLLIN, 0}};
            if (poll(fds, 2, kPatienceMs) <= 0) {
                ADD_FAILURE() << "no report; shown so far: " << shown_;
                return text;
            }
            if ((fds[1].revents & POLLIN) != 0) {
                read_some();
            }
            if ((fds[0].revents & (POLLIN | POLLHUP)) != 0) {
                const ssize_t n = read(report_, buffer, sizeof buffer);
                if (n <= 0) {
                    break;
                }
                text.append(buffer, static_cast<size_t>(n));
            }
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            ADD_FAILURE() << "the child ended with status " << status << "; shown: " << shown_;
        }
        return text;
    }

    // Sends the signal until the child reports: a single one may arrive while
    // the child is not waiting yet.
    std::string report_after_signals(int signal) {
        pollfd fd{report_, POLLIN, 0};
        for (int sent = 0; sent < kPatienceMs / 10; ++sent) {
            aaatest::send_signal(pid_, signal);
            if (poll(&fd, 1, 10) > 0) {
                break;
            }
        }
        return report();
    }

  private:
    static constexpr int kPatienceMs = 60000;

    static void become_session(int slave, bool with_terminal) {
        setsid();
        if (with_terminal) {
            ioctl(slave, TIOCSCTTY, 0);
            dup2(slave, 0);
        } else {
            const int null_fd = open("/dev/null", O_RDWR);
            dup2(null_fd, 0);
        }
        dup2(with_terminal ? slave : 0, 1);
        dup2(with_terminal ? slave : 0, 2);
    }

    bool read_some() {
        pollfd fd{master_, POLLIN, 0};
        char buffer[4096];
        if (poll(&fd, 1, kPatienceMs) <= 0) {
            return false;
        }
        const ssize_t n = read(master_, buffer, sizeof buffer);
        if (n <= 0) {
            return false;
        }
        shown_.append(buffer, static_cast<size_t>(n));
        return true;
    }

    int master_ = -1;
    int slave_ = -1;  // kept open, so that the terminal survives the child
    int report_ = -1;
    termios settings_at_start_{};
    pid_t pid_ = -1;
    std::string line_;
    std::string shown_;
};
