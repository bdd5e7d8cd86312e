// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <string>

#include "cli/output.hpp"

namespace aaactl {

// SIGINT and SIGTERM as a descriptor to poll, so that a command that waits for
// events ends between two of them.
class EndSignals {
  public:
    EndSignals() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        fd_ = signalfd(-1, &set, SFD_CLOEXEC);
        if (fd_ < 0) {
            throw Failure(ExitCode::failed,
                          std::string("signals cannot be waited for: ") + std::strerror(errno));
        }
    }
    ~EndSignals() { close(fd_); }
    EndSignals(const EndSignals &) = delete;
    EndSignals &operator=(const EndSignals &) = delete;
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
};

// SIGINT and SIGTERM wait while a command makes changes of which none may be left half done. What it has
// not taken then ends the program.
class HeldSignals {
  public:
    HeldSignals() {
        sigemptyset(&set_);
        for (const int signal : {SIGINT, SIGTERM}) {
            struct sigaction action {};
            if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
                sigaddset(&set_, signal);
            }
        }
        pthread_sigmask(SIG_BLOCK, &set_, &before_);
    }
    ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

    // Takes one that has come.
    bool take() const {
        const timespec at_once{};
        return sigtimedwait(&set_, nullptr, &at_once) > 0;
    }

  private:
    sigset_t set_{};
    sigset_t before_{};
};

}  // namespace aaactl
