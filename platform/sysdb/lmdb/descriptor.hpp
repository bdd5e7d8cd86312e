// SPDX-License-Identifier: Apache-2.0
//
// Descriptors of the provider. It runs in other people's programs, which gives three
// rules: a descriptor is closed with its owner; it is never 0, 1 or 2, into which a
// program that has closed its standard descriptors still prints; and no program that is
// executed inherits it, not even one that another thread starts at that moment.
#pragma once

#include <sys/types.h>

namespace sysdb_lmdb {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(other.release());
        return *this;
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Closes; errno stays.
    void reset(int fd = -1);
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_ = -1;
};

// While this exists, the kernel gives out no number below 3. Those that were free are
// taken by descriptors that can neither be read nor written. One thread at a time.
class StandardDescriptorsTaken {
  public:
    StandardDescriptorsTaken();
    ~StandardDescriptorsTaken();
    StandardDescriptorsTaken(const StandardDescriptorsTaken &) = delete;
    StandardDescriptorsTaken &operator=(const StandardDescriptorsTaken &) = delete;

  private:
    bool taken_[3] = {};
};

// The result of make(), which returns a descriptor or -1 and sets errno.
Descriptor raised(int fd);
template <typename Make>
Descriptor make_descriptor(Make make) {
    const StandardDescriptorsTaken taken;
    return raised(make());
}

// openat() with O_CLOEXEC and O_NOCTTY; empty with errno.
Descriptor open_at(int directory, const char *name, int flags, mode_t mode = 0);

// The name of a descriptor's file for calls that take a path only.
class DescriptorPath {
  public:
    explicit DescriptorPath(int fd);
    const char *get() const { return text_; }

  private:
    char text_[32];
};

// No thread may hold StandardDescriptorsTaken in a child.
void lock_descriptors_before_fork();
void unlock_descriptors_after_fork();

}  // namespace sysdb_lmdb
