// SPDX-License-Identifier: Apache-2.0
//
// The event manager's connections: closed, up (their channel is watched), or
// waiting for the next attempt. The next attempt follows 100 ms after the first
// failure, later ones at doubled intervals up to 5 s. The first up callback runs
// on the thread that opens the connection, later ones on the dispatching thread.
// No lock is held during a callback.

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "event_manager.hpp"
#include "log.hpp"
#include "sysdb_channel.hpp"

namespace aaaplatform {
namespace {

constexpr unsigned kFirstRetryMs = 100;
constexpr unsigned kLastRetryMs = 5000;
constexpr std::uint32_t kHangup = EPOLLRDHUP | EPOLLHUP | EPOLLERR;

std::uint32_t watched_events(const EventConnection &connection) {
    if (connection.type == EVENT_CONN_TYPE_SYSDB) {
        return EPOLLIN | EPOLLRDHUP;
    }
    return connection.handler_events | EPOLLRDHUP;
}

bool arm(const Descriptor &timer, unsigned delay_ms) {
    itimerspec delay{};
    delay.it_value.tv_sec = static_cast<time_t>(delay_ms / 1000);
    delay.it_value.tv_nsec = static_cast<long>(delay_ms % 1000) * 1'000'000;
    return timerfd_settime(timer.get(), 0, &delay, nullptr) == 0;
}

// Data that the peer sent before it hung up must still be read.
bool has_input(int fd) {
    int bytes = 0;
    return ioctl(fd, FIONREAD, &bytes) == 0 && bytes > 0;
}

}  // namespace

void EventManager::add(const ConnectionPtr &connection) {
    const std::lock_guard lock(mutex_);
    connections_.emplace(connection->id, connection);
}

void EventManager::remove(const ConnectionPtr &connection) {
    const std::lock_guard lock(mutex_);
    connections_.erase(connection->id);
    forget_channel(connection);
    connection->state = EventConnection::State::kClosed;
    connection->retry_timer.reset();
}

cerrno EventManager::set_down(const ConnectionPtr &connection, std::uint32_t mask, aaa_event_cb_t callback) {
    const std::lock_guard lock(mutex_);
    connection->down_mask = mask;
    connection->down = callback;
    return 0;
}

cerrno EventManager::set_handler(const ConnectionPtr &connection, std::uint32_t events,
                                 aaa_event_cb_t callback) {
    if (events == 0 || (events & ~static_cast<std::uint32_t>(EPOLLIN | EPOLLOUT | EPOLLPRI)) != 0) {
        return EVENT_ERR_INVALID_ARG;
    }
    const std::lock_guard lock(mutex_);
    connection->handler = callback;
    connection->handler_events = callback != nullptr ? events : 0;
    if (connection->state != EventConnection::State::kUp) {
        return 0;
    }
    epoll_event event{};
    event.events = watched_events(*connection);
    event.data.u64 = connection->id * 2;
    return epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, connection->channel, &event) == 0 ? 0 : EVENT_ERR_CHANNEL;
}

cerrno EventManager::open(const ConnectionPtr &connection) {
    {
        const std::lock_guard lock(mutex_);
        if (closed_) {
            return EVENT_ERR_BAD_HANDLE;
        }
        if (connection->state == EventConnection::State::kUp) {
            return 0;
        }
        if (connection->state == EventConnection::State::kOpening) {
            return EVENT_CONN_RETRY;
        }
        connection->state = EventConnection::State::kOpening;
        connection->retry_delay_ms = 0;
        connection->retry_timer.reset();
    }
    return bring_up(connection);
}

// The state is kOpening: this thread alone works on the connection.
cerrno EventManager::bring_up(const ConnectionPtr &connection) {
    const int channel = connection->up(connection->handle(), connection->context);
    if (channel < 0) {
        return schedule_retry(connection) ? EVENT_CONN_RETRY : EVENT_ERR_SYSTEM;
    }
    const cerrno rc = watch(connection, channel);
    if (rc == EVENT_ERR_CHANNEL) {
        log(kLogError, "EVENT", "channel %d of a connection cannot be watched: %s", channel, strerror(errno));
    }
    if (rc != 0) {
        release_channel(connection, channel);
    }
    return rc;
}

cerrno EventManager::watch(const ConnectionPtr &connection, int channel) {
    const std::lock_guard lock(mutex_);
    if (connection->state != EventConnection::State::kOpening) {
        return EVENT_ERR_BAD_HANDLE;
    }
    epoll_event event{};
    event.events = watched_events(*connection);
    event.data.u64 = connection->id * 2;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, channel, &event) != 0) {
        connection->state = EventConnection::State::kClosed;
        return EVENT_ERR_CHANNEL;
    }
    connection->channel = channel;
    connection->state = EventConnection::State::kUp;
    connection->retry_timer.reset();
    connection->retry_delay_ms = 0;
    return 0;
}

// False when no timer can be created; the connection is then closed.
bool EventManager::schedule_retry(const ConnectionPtr &connection) {
    const std::lock_guard lock(mutex_);
    if (connection->state != EventConnection::State::kOpening) {
        return true;  // closed meanwhile
    }
    const unsigned delay = connection->retry_delay_ms;
    connection->retry_delay_ms = delay == 0 ? kFirstRetryMs : std::min(delay * 2, kLastRetryMs);
    connection->state = EventConnection::State::kRetrying;
    if (watch_timer(*connection) && arm(connection->retry_timer, connection->retry_delay_ms)) {
        return true;
    }
    log(kLogError, "EVENT", "a connection remains closed, no timer can be created: %s", strerror(errno));
    connection->retry_timer.reset();
    connection->state = EventConnection::State::kClosed;
    return false;
}

bool EventManager::watch_timer(EventConnection &connection) {
    if (connection.retry_timer.get() >= 0) {
        return true;
    }
    connection.retry_timer.reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = connection.id * 2 + 1;
    return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, connection.retry_timer.get(), &event) == 0;
}

// The callbacks may have closed the channel already, and its number may be in
// use for another connection.
void EventManager::forget_channel(const ConnectionPtr &connection) {
    const int channel = connection->channel;
    connection->channel = -1;
    if (channel < 0) {
        return;
    }
    for (const auto &[id, other] : connections_) {
        if (other != connection && other->channel == channel) {
            return;
        }
    }
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, channel, nullptr);
}

// With a down callback, closing the channel is its task.
void EventManager::release_channel(const ConnectionPtr &connection, int channel) {
    aaa_event_cb_t down = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if ((connection->down_mask & EVENT_CONN_NOTIFY_DOWN) != 0) {
            down = connection->down;
        }
    }
    if (down != nullptr) {
        down(connection->handle(), connection->context);
    } else if (connection->type == EVENT_CONN_TYPE_FD) {
        ::close(channel);
    }
}

void EventManager::take_down(const ConnectionPtr &connection) {
    int channel = -1;
    {
        const std::lock_guard lock(mutex_);
        if (connection->state != EventConnection::State::kUp) {
            return;
        }
        channel = connection->channel;
        forget_channel(connection);
        connection->state = EventConnection::State::kOpening;
    }
    release_channel(connection, channel);
    schedule_retry(connection);
}

void EventManager::dispatch_ready(const ConnectionPtr &connection, std::uint32_t events) {
    int channel = -1;
    {
        const std::lock_guard lock(mutex_);
        if (connection->state == EventConnection::State::kUp) {
            channel = connection->channel;
        }
    }
    if (channel < 0) {
        return;
    }
    if (connection->type == EVENT_CONN_TYPE_FD) {
        dispatch_descriptor(connection, channel, events);
        return;
    }
    const cerrno rc = (events & EPOLLIN) != 0 ? sysdb_dispatch_channel(channel) : 0;
    const bool lost = rc == SYSDB_ERR_CONNECTION_LOST || rc == SYSDB_ERR_BAD_HANDLE;
    if (lost || (events & kHangup) != 0) {
        take_down(connection);
    }
}

void EventManager::dispatch_descriptor(const ConnectionPtr &connection, int channel, std::uint32_t events) {
    if ((events & kHangup) != 0 && !has_input(channel)) {
        take_down(connection);
        return;
    }
    aaa_event_cb_t handler = nullptr;
    {
        const std::lock_guard lock(mutex_);
        handler = connection->handler;
    }
    if (handler != nullptr) {
        handler(connection->handle(), connection->context);
    } else {
        take_down(connection);
    }
}

void EventManager::dispatch_retry(const ConnectionPtr &connection) {
    {
        const std::lock_guard lock(mutex_);
        if (connection->state != EventConnection::State::kRetrying || connection->retry_timer.get() < 0) {
            return;
        }
        std::uint64_t expirations = 0;
        if (read(connection->retry_timer.get(), &expirations, sizeof expirations) != sizeof expirations) {
            return;
        }
        connection->state = EventConnection::State::kOpening;
    }
    // The next attempt may return a descriptor that can be watched.
    if (bring_up(connection) == EVENT_ERR_CHANNEL) {
        reopen_later(connection);
    }
}

void EventManager::reopen_later(const ConnectionPtr &connection) {
    {
        const std::lock_guard lock(mutex_);
        if (connection->state != EventConnection::State::kClosed || connections_.count(connection->id) == 0) {
            return;
        }
        connection->state = EventConnection::State::kOpening;
    }
    schedule_retry(connection);
}

}  // namespace aaaplatform
