// SPDX-License-Identifier: Apache-2.0
//
// Channels: the descriptor that a connection's owner polls, with the process's
// socket and timer in it.

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host.hpp"
#include "notifications.hpp"
#include "watch_table.hpp"

namespace sysdb_lmdb {
namespace {

// Covers a writer that died between its commit and its wake-ups.
constexpr itimerspec kTick = {{1, 0}, {1, 0}};

cerrno report_descriptors() {
    const int error = errno;
    log(kLogError, "a connection's channel cannot be opened: %s; raise the limit of open files",
        std::strerror(error));
    return Result::of_errno(error).code();
}

bool watch_descriptor(int channel, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    return epoll_ctl(channel, EPOLL_CTL_ADD, fd, &event) == 0 || errno == EEXIST;
}

std::uint64_t operational_generation() {
    std::uint64_t generation = 0;
    Database::instance().with(Tree::kOper, [&generation](const Environment &environment) -> cerrno {
        generation = environment.generation();
        return 0;
    });
    return generation;
}

cerrno bind_own_socket(Descriptor &socket, std::string &name) {
    Directory directory;
    const cerrno rc = Database::instance().watcher_directory(Database::Missing::kMake, directory);
    return rc == 0 ? bind_watcher_socket(directory, socket, name) : rc;
}

void remove_own_socket(const std::string &name) {
    Directory directory;
    if (Database::instance().watcher_directory(Database::Missing::kReport, directory) == 0) {
        remove_socket_file(directory, name);
    }
}

bool is_reachable(const std::string &name) {
    Directory directory;
    return Database::instance().watcher_directory(Database::Missing::kReport, directory) == 0 &&
           socket_file_exists(directory, name);
}

}  // namespace

cerrno Notifications::make_channel(Connection &connection) {
    auto &events = connection.events;
    if (events.channel) {
        return 0;
    }
    Descriptor channel = make_descriptor([] { return epoll_create1(EPOLL_CLOEXEC); });
    Descriptor wakeup = make_descriptor([] { return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); });
    if (!channel || !wakeup || !watch_descriptor(channel.get(), wakeup.get())) {
        return report_descriptors();
    }
    by_channel_[channel.get()] = connection.id;
    events.channel = std::move(channel);
    events.wakeup = std::move(wakeup);
    events.wakeup_sent = false;
    events.joined = false;
    return 0;
}

cerrno Notifications::channel_of(const ConnectionPtr &connection, std::int32_t &channel) {
    const Lock lock(mutex_);
    const cerrno rc = connection->events.closed ? SYSDB_ERR_BAD_HANDLE : make_channel(*connection);
    if (rc == 0) {
        channel = connection->events.channel.get();
    }
    return rc;
}

cerrno Notifications::join_channel(Connection &connection) {
    auto &events = connection.events;
    if (events.joined) {
        return 0;
    }
    const int channel = events.channel.get();
    if (!watch_descriptor(channel, socket_.get()) || !watch_descriptor(channel, timer_.get())) {
        return report_descriptors();
    }
    events.joined = true;
    return 0;
}

void Notifications::leave_channel(Connection &connection) {
    auto &events = connection.events;
    if (events.joined && events.channel) {
        epoll_ctl(events.channel.get(), EPOLL_CTL_DEL, socket_.get(), nullptr);
        epoll_ctl(events.channel.get(), EPOLL_CTL_DEL, timer_.get(), nullptr);
    }
    events.joined = false;
}

cerrno Notifications::ensure_watcher() {
    if (socket_) {
        return 0;
    }
    Descriptor timer =
        make_descriptor([] { return timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK); });
    if (!timer || timerfd_settime(timer.get(), 0, &kTick, nullptr) != 0) {
        return report_descriptors();
    }
    const std::uint64_t generation = operational_generation();
    const cerrno rc = bind_own_socket(socket_, socket_name_);
    if (rc == 0) {
        timer_ = std::move(timer);
        joined_generation_ = generation;
    }
    return rc;
}

void Notifications::close_watcher() {
    if (!socket_) {
        return;
    }
    for (const ConnectionPtr &connection : Connections::instance().all()) {
        leave_channel(*connection);
    }
    remove_own_socket(socket_name_);
    socket_.reset();
    timer_.reset();
}

// The socket or the rows were lost: the run directory was emptied, or the
// operational database replaced. A failure is tried again at the next tick; until
// then the ticks report the changes.
void Notifications::rejoin() {
    const std::uint64_t generation = operational_generation();
    Descriptor socket;
    std::string name;
    if (bind_own_socket(socket, name) != 0) {
        return;
    }
    for (const auto &[id, watch] : watches_) {
        leave_channel(*watch->connection);
    }
    remove_own_socket(socket_name_);
    socket_ = std::move(socket);
    socket_name_ = name;
    cerrno rc = 0;
    for (const auto &[id, watch] : watches_) {
        const cerrno joined = join_channel(*watch->connection);
        rc = rc == 0 ? joined : rc;
        rc = rc == 0 ? add_watch(watch->key, socket_name_) : rc;
    }
    joined_generation_ = rc == 0 ? generation : 0;
}

void Notifications::wake(Connection &connection) {
    auto &events = connection.events;
    if (!events.wakeup_sent && events.wakeup) {
        eventfd_write(events.wakeup.get(), 1);
        events.wakeup_sent = true;
    }
}

void Notifications::clear_wakeup(Connection &connection) {
    eventfd_t ignored;
    eventfd_read(connection.events.wakeup.get(), &ignored);
    connection.events.wakeup_sent = false;
}

bool Notifications::timer_expired() {
    std::uint64_t expirations = 0;
    return timer_ && read(timer_.get(), &expirations, sizeof expirations) == sizeof expirations;
}

// Once a second: restores the process's socket and rows if they were lost, and
// wakes connections with callbacks that are still pending.
void Notifications::tick(const Connection &current) {
    const bool reachable = is_reachable(socket_name_) && operational_generation() == joined_generation_;
    if (!reachable) {
        rejoin();
    }
    for (const auto &[id, watch] : watches_) {
        if (watch->has_pending() && watch->connection.get() != &current) {
            wake(*watch->connection);
        }
    }
}

}  // namespace sysdb_lmdb
