// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "cli/output.hpp"

namespace aaactl {

// SIGINT, SIGTERM and SIGHUP, for a terminal that is closed, as a descriptor to
// poll, so that a command that waits for events ends between two of them.
class EndSignals {
  public:
    EndSignals() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        struct sigaction hangup {};
        // nohup has it ignored.
        if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN) {
            sigaddset(&set, SIGHUP);
        }
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

// SIGINT and SIGTERM wait while a command makes changes of which none may be left half done. One that the
// command has not taken then ends the program. Handlers, not the mask: that of the library's thread is its
// own.
class HeldSignals {
  public:
    HeldSignals() {
        came_ = 0;
        struct sigaction note {};
        note.sa_handler = [](int signal) { came_ = signal; };
        note.sa_flags = SA_RESTART;
        sigemptyset(&note.sa_mask);
        for (Held &held : held_) {
            sigaction(held.signal, nullptr, &held.before);
            if (held.before.sa_handler != SIG_IGN) {
                sigaction(held.signal, &note, nullptr);
            }
        }
    }
    ~HeldSignals() {
        for (const Held &held : held_) {
            sigaction(held.signal, &held.before, nullptr);
        }
        if (came_ != 0) {
            raise(came_);
        }
    }
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

    // Takes one that has come.
    bool take() const {
        const bool came = came_ != 0;
        came_ = 0;
        return came;
    }

  private:
    struct Held {
        int signal;
        struct sigaction before;
    };
    Held held_[2] = {{SIGINT, {}}, {SIGTERM, {}}};
    static inline volatile std::sig_atomic_t came_ = 0;
};

}  // namespace aaactl
