// SPDX-License-Identifier: Apache-2.0
//
// The event manager's loop: waiting, wake-ups, and dispatch.
//
// Wake-ups are in a queue under the mutex, and the event descriptor is readable
// as long as the queue is not empty, so a wake-up that was sent before a thread
// blocked is found. Each wait takes one event, and the kernel returns ready
// descriptors in turn, so a flooded connection does not starve the others.

#include <cerrno>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "event_manager.hpp"

namespace aaaplatform {
namespace {

// epoll's user word: 0 for the wake-up, else connection id * 2 + timer bit.
constexpr std::uint64_t kWakeup = 0;

}  // namespace

EventManager::EventManager(const void *owner) : owner_(owner), pid_(getpid()) {}

std::shared_ptr<EventManager> EventManager::create(const void *owner) {
    std::shared_ptr<EventManager> manager(new EventManager(owner));
    manager->epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    manager->wakeup_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (manager->epoll_.get() < 0 || manager->wakeup_.get() < 0) {
        return nullptr;
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kWakeup;
    if (epoll_ctl(manager->epoll_.get(), EPOLL_CTL_ADD, manager->wakeup_.get(), &event) != 0) {
        return nullptr;
    }
    return manager;
}

bool EventManager::inherited() const {
    return getpid() != pid_;
}

std::int32_t EventManager::attach(event_async_handler_t handler, void *arg) {
    const std::lock_guard lock(mutex_);
    async_.push_back({handler, arg});
    return static_cast<std::int32_t>(async_.size() - 1);
}

bool EventManager::send(std::int32_t code) {
    const std::lock_guard lock(mutex_);
    if (closed_ || code < 0 || static_cast<std::size_t>(code) >= async_.size()) {
        errno = EINVAL;
        return false;
    }
    sent_.push_back(code);
    eventfd_write(wakeup_.get(), 1);  // fails only when it is readable already
    return true;
}

void EventManager::drain_wakeup() {
    eventfd_t count;
    eventfd_read(wakeup_.get(), &count);
}

bool EventManager::take_async(EventRecord &record) {
    const std::lock_guard lock(mutex_);
    if (sent_.empty()) {
        if (!closed_) {
            drain_wakeup();
        }
        return false;
    }
    record = {EventRecord::kAsync, sent_.front(), 0, 0, 0};
    sent_.pop_front();
    if (sent_.empty() && !closed_) {
        drain_wakeup();
    }
    return true;
}

// False when there is nothing to return yet, or at the end, with errno.
bool EventManager::take_wakeup(EventRecord &record, bool &ended) {
    if (take_async(record)) {
        return true;
    }
    const std::lock_guard lock(mutex_);
    ended = closed_ && !abandoned_;
    errno = EBADF;
    return false;
}

bool EventManager::wait(EventRecord &record) {
    for (bool ended = false; !ended;) {
        if (retired_) {  // connections and signals could wake a thread that must not return
            pollfd wakeup{wakeup_.get(), POLLIN, 0};
            if (poll(&wakeup, 1, -1) == 1 && take_wakeup(record, ended)) {
                return true;
            }
            continue;
        }
        epoll_event event{};
        const bool has_event = epoll_wait(epoll_.get(), &event, 1, -1) == 1;
        if (has_event && event.data.u64 == kWakeup) {
            if (take_wakeup(record, ended)) {
                return true;
            }
        } else if (!retired_) {
            const bool timer = (event.data.u64 & 1) != 0;
            record = {timer ? EventRecord::kRetry : EventRecord::kReady, 0, event.data.u64 >> 1, event.events,
                      0};
            return has_event;
        }
    }
    return false;
}

void EventManager::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    connections_.clear();
    eventfd_write(wakeup_.get(), 1);
}

// A thread that waits for any event is woken to wait for the wake-up only.
void EventManager::retire() {
    retired_ = true;
    eventfd_write(wakeup_.get(), 1);
}

void EventManager::abandon() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    abandoned_ = true;
    connections_.clear();
    drain_wakeup();
}

ConnectionPtr EventManager::find(std::uint64_t id) {
    const std::lock_guard lock(mutex_);
    const auto found = connections_.find(id);
    return found != connections_.end() ? found->second : nullptr;
}

void EventManager::dispatch_async(std::int32_t code) {
    AsyncHandler target{};
    {
        const std::lock_guard lock(mutex_);
        if (code < 0 || static_cast<std::size_t>(code) >= async_.size()) {
            return;
        }
        target = async_[static_cast<std::size_t>(code)];
    }
    if (target.handler != nullptr) {
        target.handler(target.arg);
    }
}

void EventManager::dispatch(const EventRecord &record) {
    if (record.kind == EventRecord::kAsync) {
        dispatch_async(record.code);
        return;
    }
    const ConnectionPtr connection = find(record.connection);
    if (connection == nullptr) {
        return;
    }
    if (record.kind == EventRecord::kReady) {
        dispatch_ready(connection, record.events);
    }
    if (record.kind == EventRecord::kRetry) {
        dispatch_retry(connection);
    }
}

}  // namespace aaaplatform
