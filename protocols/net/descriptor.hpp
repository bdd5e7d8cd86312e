// SPDX-License-Identifier: Apache-2.0
//
// An owned descriptor that is never 0, 1 or 2. A process that was started without those
// three would otherwise write its messages into a socket.
#pragma once

#include <utility>

namespace net {

class Descriptor {
  public:
    Descriptor() = default;
    // Takes over `fd`, -1 included. One of the first three is moved upwards; where that
    // fails, the result is empty and errno says why. errno is otherwise left alone.
    explicit Descriptor(int fd);
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Closes it. errno is left alone.
    void reset();

  private:
    int fd_ = -1;
};

}  // namespace net
