// SPDX-License-Identifier: Apache-2.0
//
// Connections of this process. A handle is a number that is never reused, so that
// a stale one is detected.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "key.hpp"
#include "watcher_socket.hpp"

namespace sysdb_lmdb {

// Guarded by the mutex of Notifications.
struct ConnectionEvents {
    Descriptor channel;  // epoll, polled by the caller
    Descriptor wakeup;   // eventfd: something is pending for this connection
    bool wakeup_sent = false;
    bool joined = false;       // the process's socket and timer are in the channel
    bool dispatching = false;  // by one thread at a time
    bool again = false;        // another thread asked to dispatch meanwhile
    bool closed = false;
    unsigned watches = 0;
};

struct Connection {
    std::uint64_t id = 0;
    Key prefix;  // the directory it is bound at; never changes
    ConnectionEvents events;
};

using ConnectionPtr = std::shared_ptr<Connection>;

class Connections {
  public:
    static Connections &instance();

    std::uint64_t add(const Key &prefix);
    ConnectionPtr find(std::uint64_t id);
    // Removes it; null when there is none.
    ConnectionPtr remove(std::uint64_t id);
    std::vector<ConnectionPtr> all();

    void lock_before_fork() { mutex_.lock(); }
    void unlock_after_fork() { mutex_.unlock(); }

  private:
    std::mutex mutex_;
    std::unordered_map<std::uint64_t, ConnectionPtr> connections_;
    std::uint64_t last_id_ = 0;
};

}  // namespace sysdb_lmdb
