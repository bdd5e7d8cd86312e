// SPDX-License-Identifier: Apache-2.0
//
// Registering and removing watches.

#include "notifications.hpp"

#include <new>

#include "watch_table.hpp"

namespace sysdb_lmdb {

// Never destroyed: other threads may use it while the process exits.
Notifications &Notifications::instance() {
    static Notifications &notifications = *new Notifications;
    return notifications;
}

std::uint64_t Notifications::connection_of(std::int32_t channel) {
    const Lock lock(mutex_);
    const auto found = by_channel_.find(channel);
    return found != by_channel_.end() ? found->second : 0;
}

// First the row, then the revision: a writer that makes a change after that
// revision finds the row and sends a wake-up.
cerrno Notifications::enter(const WatchPtr &watch, Tree tree) {
    if (by_key_.count(watch->key) == 0) {
        const cerrno rc = add_watch(watch->key, socket_name_);
        if (rc != 0) {
            return rc;
        }
    }
    TreeState &state = state_of(tree);
    return Database::instance().read(tree, [&](ReadTxn &txn) {
        if (state.watches > 0) {
            return note_changes(txn);
        }
        state.generation = txn.environment().generation();
        return last_revision(txn, state.revision);
    });
}

// Undoes the completed steps of a failed registration.
void Notifications::abandon(const Watch &watch) {
    if (socket_ && by_key_.count(watch.key) == 0) {
        remove_watch(watch.key, socket_name_);
    }
    if (watch.connection->events.watches == 0) {
        leave_channel(*watch.connection);
    }
    if (watches_.empty()) {
        close_watcher();
    }
}

cerrno Notifications::add(const ConnectionPtr &connection, const Key &key, WatchRequest request,
                          std::uint64_t &id) {
    const Lock lock(mutex_);
    auto watch = std::make_shared<Watch>();
    watch->connection = connection;
    watch->key = key.view();
    watch->request = std::move(request);
    cerrno rc = connection->events.closed ? SYSDB_ERR_BAD_HANDLE : make_channel(*connection);
    rc = rc == 0 ? ensure_watcher() : rc;
    rc = rc == 0 ? join_channel(*connection) : rc;
    rc = rc == 0 ? enter(watch, key.tree()) : rc;
    const bool since = (watch->request.mode & SYSDB_NOTIFY_SINCE) != 0;
    rc = rc == 0 && since ? note_since(*watch, key.tree()) : rc;
    if (rc != 0) {
        abandon(*watch);
        return rc;
    }
    watch->id = ++last_id_;
    watches_.emplace(watch->id, watch);
    by_key_.emplace(watch->key, watch);
    ++state_of(key.tree()).watches;
    ++connection->events.watches;
    if ((watch->request.mode & SYSDB_NOTIFY_INITIAL) != 0) {
        watch->resync = watch->is_directory();
        if (!watch->is_directory()) {
            watch->pending.emplace(watch->key, SYSDB_EVENT_SET);
        }
        wake(*connection);
    }
    if (watch->has_pending()) {
        wake(*connection);
    }
    id = watch->id;
    return 0;
}

void Notifications::leave(const WatchPtr &watch) {
    watch->removed = true;
    watches_.erase(watch->id);
    for (auto [at, end] = by_key_.equal_range(watch->key); at != end; ++at) {
        if (at->second == watch) {
            by_key_.erase(at);
            break;
        }
    }
    --state_of(watch->connection->prefix.tree()).watches;
    if (--watch->connection->events.watches == 0) {
        leave_channel(*watch->connection);
    }
    if (by_key_.count(watch->key) == 0) {
        remove_watch(watch->key, socket_name_);
    }
    if (watches_.empty()) {
        close_watcher();
    }
}

// After this the caller may release the callback's arguments.
void Notifications::wait_until_idle(Lock &lock, const WatchPtr &watch) {
    if (watch->running && pthread_equal(watch->runner, pthread_self()) != 0) {
        return;
    }
    idle_.wait(lock, [&watch] { return !watch->running; });
}

cerrno Notifications::remove(const ConnectionPtr &connection, std::uint64_t id) {
    Lock lock(mutex_);
    const auto found = watches_.find(id);
    if (found == watches_.end() || found->second->connection != connection) {
        return SYSDB_ERR_BAD_HANDLE;
    }
    const WatchPtr watch = found->second;
    leave(watch);
    wait_until_idle(lock, watch);
    return 0;
}

void Notifications::close(const ConnectionPtr &connection) {
    Lock lock(mutex_);
    std::vector<WatchPtr> watches;
    for (const auto &[id, watch] : watches_) {
        if (watch->connection == connection) {
            watches.push_back(watch);
        }
    }
    for (const WatchPtr &watch : watches) {
        leave(watch);
    }
    auto &events = connection->events;
    events.closed = true;
    by_channel_.erase(events.channel.get());
    events.channel.reset();
    events.wakeup.reset();
    for (const WatchPtr &watch : watches) {
        wait_until_idle(lock, watch);
    }
}

// The watches remain with the parent. Its channels are shared with this process:
// they may only be closed.
void Notifications::reset_in_child() {
    for (const auto &[id, watch] : watches_) {
        watch->removed = true;
        watch->running = false;
    }
    watches_.clear();
    by_key_.clear();
    by_channel_.clear();
    trees_[0] = trees_[1] = TreeState{};
    socket_.reset();
    timer_.reset();
    for (const ConnectionPtr &connection : Connections::instance().all()) {
        const bool closed = connection->events.closed;
        connection->events = ConnectionEvents{};
        connection->events.closed = closed;
    }
    new (&idle_) std::condition_variable;  // the old one may have waiters of the parent
    mutex_.unlock();
}

}  // namespace sysdb_lmdb
