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

}  // namespace aaactl
