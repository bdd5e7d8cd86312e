// SPDX-License-Identifier: Apache-2.0
//
// Descriptors above the standard ones.

#include "descriptor.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace aaaplatform {

namespace {

constexpr int kFirstDescriptor = STDERR_FILENO + 1;

void close_quietly(int fd) noexcept {
    const int saved_errno = errno;
    close(fd);
    errno = saved_errno;
}

}  // namespace

int above_standard(int fd) noexcept {
    if (fd < 0 || fd >= kFirstDescriptor) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, kFirstDescriptor);
    close_quietly(fd);
    return moved;
}

void Descriptor::reset(int fd) noexcept {
    const int moved = above_standard(fd);
    if (fd_ >= 0) {
        close_quietly(fd_);
    }
    fd_ = moved;
}

int Descriptor::release() noexcept {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

}  // namespace aaaplatform
