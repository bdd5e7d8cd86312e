// SPDX-License-Identifier: Apache-2.0
//
// Making and closing descriptors.

#include "descriptor.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>

namespace sysdb_lmdb {
namespace {

constexpr int kFirstOwn = 3;

constinit std::mutex g_making;

bool is_closed(int fd) {
    return fcntl(fd, F_GETFD) < 0 && errno == EBADF;
}

// Close-on-exec, and useless to a thread that reads or prints.
int open_placeholder() {
    return open("/", O_PATH | O_CLOEXEC);
}

// Another thread may have put a file of the program in its place: dup2() does not ask.
bool is_placeholder(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && (flags & O_PATH) != 0;
}

}  // namespace

void Descriptor::reset(int fd) {
    if (fd_ >= 0) {
        const int error = errno;
        close(fd_);
        errno = error;
    }
    fd_ = fd;
}

StandardDescriptorsTaken::StandardDescriptorsTaken() {
    g_making.lock();
    const int error = errno;
    for (int fd = 0; fd < kFirstOwn; ++fd) {
        if (!is_closed(fd)) {
            continue;
        }
        const int placeholder = open_placeholder();
        if (placeholder >= kFirstOwn) {
            close(placeholder);  // another thread was faster
        } else if (placeholder >= 0) {
            taken_[placeholder] = true;
        }
    }
    errno = error;
}

StandardDescriptorsTaken::~StandardDescriptorsTaken() {
    const int error = errno;
    for (int fd = 0; fd < kFirstOwn; ++fd) {
        if (taken_[fd] && is_placeholder(fd)) {
            close(fd);
        }
    }
    errno = error;
    g_making.unlock();
}

Descriptor raised(int fd) {
    if (fd < 0 || fd >= kFirstOwn) {
        return Descriptor(fd);
    }
    const Descriptor low(fd);  // another thread closed it meanwhile
    return Descriptor(fcntl(fd, F_DUPFD_CLOEXEC, kFirstOwn));
}

Descriptor open_at(int directory, const char *name, int flags, mode_t mode) {
    return make_descriptor([&] { return openat(directory, name, flags | O_CLOEXEC | O_NOCTTY, mode); });
}

DescriptorPath::DescriptorPath(int fd) {
    std::snprintf(text_, sizeof text_, "/proc/self/fd/%d", fd);
}

void lock_descriptors_before_fork() {
    g_making.lock();
}

void unlock_descriptors_after_fork() {
    g_making.unlock();
}

}  // namespace sysdb_lmdb
