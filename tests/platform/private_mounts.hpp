// SPDX-License-Identifier: Apache-2.0
//
// File systems for one test, seen by its processes only: small ones, and ones at the
// places that a program with more rights than its user looks at. They need root, and a
// kernel that lets it; a test that cannot have them skips itself and says why.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "support/machine.hpp"

// For this process and those that it starts; false with errno.
inline bool enter_private_mounts() {
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

inline bool mount_memory(const std::string &place, const std::string &options) {
    return mount("tmpfs", place.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

// A file system that counts times in the kernel's steps, and knows no reservation of space.
inline bool mount_simple_memory(const std::string &place) {
    return mount("ramfs", place.c_str(), "ramfs", 0, "mode=0700") == 0;
}

// Empty, or why there can be none.
inline std::string why_no_private_mounts() {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(enter_private_mounts() && mount_memory("/mnt", "size=64k") ? 0 : errno);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    const int error = WIFEXITED(status) ? WEXITSTATUS(status) : EPERM;
    return error == 0 ? "" : std::string("cannot mount a file system: ") + std::strerror(error);
}

#define SKIP_WITHOUT_PRIVATE_MOUNTS()                           \
    do {                                                        \
        SKIP_WITHOUT_ROOT("needs root to mount a file system"); \
        const std::string why = why_no_private_mounts();        \
        SKIP_WITHOUT("mounts", why.empty(), why);               \
    } while (false)
