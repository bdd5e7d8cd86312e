// SPDX-License-Identifier: Apache-2.0
//
// Descriptors that the platform opens. None of them is 0, 1 or 2, also in a program
// that has closed these: whatever the program or the C library prints would be written
// into the platform's file or socket, and a file of the platform would be read as the
// program's standard input.
//
// The kernel gives out the lowest free number, so a new descriptor is below 3 for a
// moment if the standard ones are closed. Nothing is written to it in that moment, and
// it is opened with O_CLOEXEC, so no started program inherits it.
//
// Both may be used in a signal handler.
#pragma once

namespace aaaplatform {

// Moves a new descriptor above the standard ones and closes the old number. Returns -1
// when fd is -1, or with errno set when there is no free number.
int above_standard(int fd) noexcept;

// Owns a new descriptor, which it moves above the standard ones and closes. errno is kept.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) noexcept : fd_(above_standard(fd)) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    [[nodiscard]] int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    void reset(int fd = -1) noexcept;
    // The caller closes it.
    [[nodiscard]] int release() noexcept;

  private:
    int fd_;
};

}  // namespace aaaplatform
