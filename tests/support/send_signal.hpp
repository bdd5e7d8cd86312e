// SPDX-License-Identifier: Apache-2.0
//
// Signals to processes that a test has started.

#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/types.h>

#include <cerrno>

namespace aaatest {

// Sends a signal to one process. kill() takes 0 and -1 for groups of processes: with the number
// of a process that has ended, or was never started, a test that runs as root would end the
// machine's whole session.
inline int send_signal(pid_t pid, int number) {
    if (pid <= 0) {
        ADD_FAILURE() << "signal " << number << " for a process that does not run: " << pid;
        errno = ESRCH;
        return -1;
    }
    return kill(pid, number);
}

}  // namespace aaatest
