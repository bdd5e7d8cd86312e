// SPDX-License-Identifier: Apache-2.0
//
// Datagram sockets in the watcher directory.
#pragma once

#include <string>

#include "platform/sysdb.h"

namespace sysdb_lmdb {

// A descriptor that is closed with its owner.
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
    void reset(int fd = -1);
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_ = -1;
};

// Binds a new socket under a name of this process's own.
cerrno bind_watcher_socket(const std::string &directory, Descriptor &socket, std::string &name);

// A socket without a name, to send from.
Descriptor make_sender();

enum class Peer { kAlive, kDead };

// Sends the wake-up. A name that is not a watcher's is dead.
Peer wake_peer(const Descriptor &sender, const std::string &directory, const std::string &name);
// Tells, without sending anything, whether a process holds the socket.
Peer probe_peer(const std::string &directory, const std::string &name);

// Does nothing for a name that is not a watcher's.
void remove_socket_file(const std::string &directory, const std::string &name);
bool socket_file_exists(const std::string &directory, const std::string &name);

// Reads and discards all received datagrams.
void drain_socket(int fd);

}  // namespace sysdb_lmdb
