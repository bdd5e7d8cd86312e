// SPDX-License-Identifier: Apache-2.0
//
// Event managers and their connections: classes shared by the platform's sources.
//
// Locks: the registry's mutex and each manager's mutex. Neither is held while
// the other is taken, nor during a callback. Handles are numbers that every call
// looks up, so that a stale one is refused.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <sys/types.h>

#include "descriptor.hpp"
#include "platform/event_manager.h"

namespace aaaplatform {

// Written by event_block into the caller's buffer for qm_event_dispatch. Holds
// an id instead of an address: the connection may be closed in between.
struct EventRecord {
    enum Kind : std::uint32_t { kAsync = 1, kReady, kRetry };
    std::uint32_t kind;
    std::int32_t code;         // of the async event
    std::uint64_t connection;  // id
    std::uint32_t events;      // of epoll
    std::uint32_t padding;
};
static_assert(sizeof(EventRecord) <= EVENT_BUFFER_MINIMUM);

struct EventConnection {
    enum class State { kClosed, kOpening, kUp, kRetrying };

    std::uint64_t id = 0;
    std::uint32_t type = 0;
    aaa_event_cb_t up = nullptr;
    void *context = nullptr;

    // Guarded by the manager's mutex.
    State state = State::kClosed;
    aaa_event_cb_t down = nullptr;
    std::uint32_t down_mask = 0;
    aaa_event_cb_t handler = nullptr;
    std::uint32_t handler_events = 0;
    int channel = -1;  // returned by the up callback
    Descriptor retry_timer;
    unsigned retry_delay_ms = 0;

    void *handle() const { return reinterpret_cast<void *>(static_cast<std::uintptr_t>(id)); }
};

using ConnectionPtr = std::shared_ptr<EventConnection>;

class EventManager {
  public:
    // Null with errno set on failure.
    static std::shared_ptr<EventManager> create(const void *owner);

    // In a forked child: its epoll and event descriptors are the parent's.
    bool inherited() const;
    const void *owner() const { return owner_; }

    std::int32_t attach(event_async_handler_t handler, void *arg);
    bool send(std::int32_t code);
    // False with errno set: a signal, or the manager is closed.
    bool wait(EventRecord &record);
    void dispatch(const EventRecord &record);
    // Threads in wait() return, and all later calls fail.
    void close();
    // The code of the owner is about to be unmapped. Until then its threads may be woken to
    // end; one that cannot be woken stays in wait() for ever, instead of returning into
    // that code.
    void retire();
    // The code is unmapped: as close(), but no thread returns.
    void abandon();

    void add(const ConnectionPtr &connection);
    void remove(const ConnectionPtr &connection);
    cerrno open(const ConnectionPtr &connection);
    cerrno set_down(const ConnectionPtr &connection, std::uint32_t mask, aaa_event_cb_t callback);
    cerrno set_handler(const ConnectionPtr &connection, std::uint32_t events, aaa_event_cb_t callback);

  private:
    struct AsyncHandler {
        event_async_handler_t handler;
        void *arg;
    };

    explicit EventManager(const void *owner);
    void drain_wakeup();
    bool take_async(EventRecord &record);
    bool take_wakeup(EventRecord &record, bool &ended);
    ConnectionPtr find(std::uint64_t id);

    void dispatch_async(std::int32_t code);
    void dispatch_ready(const ConnectionPtr &connection, std::uint32_t events);
    void dispatch_retry(const ConnectionPtr &connection);
    void dispatch_descriptor(const ConnectionPtr &connection, int channel, std::uint32_t events);
    cerrno bring_up(const ConnectionPtr &connection);
    cerrno watch(const ConnectionPtr &connection, int channel);
    void take_down(const ConnectionPtr &connection);
    void release_channel(const ConnectionPtr &connection, int channel);
    bool schedule_retry(const ConnectionPtr &connection);
    bool watch_timer(EventConnection &connection);
    void reopen_later(const ConnectionPtr &connection);
    void forget_channel(const ConnectionPtr &connection);

    const void *const owner_;
    const pid_t pid_;
    Descriptor epoll_;
    Descriptor wakeup_;
    std::atomic<bool> retired_{false};
    std::mutex mutex_;
    bool closed_ = false;
    bool abandoned_ = false;
    std::deque<std::int32_t> sent_;
    std::vector<AsyncHandler> async_;
    std::unordered_map<std::uint64_t, ConnectionPtr> connections_;
};

using ManagerPtr = std::shared_ptr<EventManager>;

// Marks the event managers that an object's code created; the object is about
// to be unmapped. The second function releases them.
void retire_event_managers(const void *object_base);
void release_retired_event_managers();

}  // namespace aaaplatform
