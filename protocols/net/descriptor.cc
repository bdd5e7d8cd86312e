// SPDX-License-Identifier: Apache-2.0
//
// Owned descriptors above the standard three.
#include "net/descriptor.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace net {

namespace {

constexpr int kFirst = 3;

}  // namespace

Descriptor::Descriptor(int fd) : fd_(fd) {
    if (fd < 0 || fd >= kFirst) {
        return;
    }
    fd_ = fcntl(fd, F_DUPFD_CLOEXEC, kFirst);
    const int error = errno;
    close(fd);
    errno = error;
}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    if (this != &other) {
        reset();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

void Descriptor::reset() {
    if (fd_ >= 0) {
        const int error = errno;
        close(std::exchange(fd_, -1));
        errno = error;
    }
}

}  // namespace net
