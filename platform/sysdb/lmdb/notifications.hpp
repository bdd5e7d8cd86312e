// SPDX-License-Identifier: Apache-2.0
//
// The watches of this process, and the calls of their callbacks.
//
// The process has one datagram socket and one timer for all connections; both are
// in the channel of every connection with watches. The first dispatch reads the
// change log for all connections, notes the changes of every watch, wakes the
// other connections, and calls the callbacks of its own. Changes and values come
// from one view of the database, so the last callback has the state as of the
// changes read, and the next dispatch continues after them.
//
// Locks: this mutex is taken before those of Connections and Database. None is
// held during a callback. A connection is dispatched by one thread at a time,
// so that callbacks come in the order of the changes.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "change_log.hpp"
#include "connections.hpp"

namespace sysdb_lmdb {

struct WatchRequest {
    std::string path;  // as the caller gave it
    std::uint32_t events;
    std::uint32_t mode;
    std::uint64_t since;  // a revision, with SYSDB_NOTIFY_SINCE
    aaa_notify_cb_t callback;
    void *callback_arg;
    void *user_ctx;
};

struct Watch {
    std::uint64_t id = 0;
    ConnectionPtr connection;
    std::string key;  // an item's, or with '/' at its end a directory's
    WatchRequest request;

    // Key to newest operation, since the last dispatch.
    std::map<std::string, std::uint32_t, std::less<>> pending;
    bool resync = false;  // of a directory: too many changes to report singly
    bool removed = false;
    bool running = false;
    pthread_t runner{};

    bool is_directory() const { return key.ends_with('/'); }
    bool has_pending() const { return resync || !pending.empty(); }
};

using WatchPtr = std::shared_ptr<Watch>;

class Notifications {
  public:
    static Notifications &instance();

    cerrno channel_of(const ConnectionPtr &connection, std::int32_t &channel);
    // The channel's connection, 0 when there is none.
    std::uint64_t connection_of(std::int32_t channel);

    cerrno add(const ConnectionPtr &connection, const Key &key, WatchRequest request, std::uint64_t &id);
    cerrno remove(const ConnectionPtr &connection, std::uint64_t id);
    // The connection is no longer bound.
    void close(const ConnectionPtr &connection);
    cerrno dispatch(const ConnectionPtr &connection);

    void lock_before_fork() { mutex_.lock(); }
    void unlock_in_parent() { mutex_.unlock(); }
    void reset_in_child();

  private:
    struct TreeState {
        unsigned watches = 0;
        std::uint64_t revision = 0;    // changes up to here have been noted
        std::uint64_t generation = 0;  // of the opened file that it belongs to
    };

    // One pending call of a callback, with copies of its arguments.
    struct Delivery {
        WatchPtr watch;
        std::string path;
        std::uint32_t operation;
        std::uint32_t datatype;
        std::string value;
        std::uint64_t revision;
    };

    class Turn;
    using Lock = std::unique_lock<std::mutex>;

    TreeState &state_of(Tree tree) { return trees_[tree == Tree::kCfg ? 0 : 1]; }

    // notifications_channel.cc
    cerrno make_channel(Connection &connection);
    cerrno join_channel(Connection &connection);
    cerrno ensure_watcher();
    cerrno open_watcher();
    void close_watcher();
    void rejoin();
    void leave_channel(Connection &connection);
    void wake(Connection &connection);
    void clear_wakeup(Connection &connection);
    void tick(const Connection &current);
    bool timer_expired();

    // notifications.cc
    cerrno enter(const WatchPtr &watch, Tree tree);
    void abandon(const Watch &watch);
    void leave(const WatchPtr &watch);
    void wait_until_idle(Lock &lock, const WatchPtr &watch);

    // notifications_dispatch.cc
    cerrno note_changes(ReadTxn &txn);
    // The changes after the revision of the request; SYSDB_ERR_NOT_FOUND when the log does not have them all.
    cerrno note_since(Watch &watch, Tree tree);
    static void note(Watch &watch, const Change &change);
    void note(const Change &change, std::string_view watched);
    void note_change(const Change &change);
    void note_everything(Tree tree);
    cerrno note_for_others(Tree tree);
    cerrno gather(const ConnectionPtr &connection, std::vector<Delivery> &deliveries);
    cerrno gather_tree(Tree tree, const ConnectionPtr &connection, std::vector<Delivery> &deliveries);
    cerrno gather_watch(ReadTxn &txn, const WatchPtr &watch, std::vector<Delivery> &deliveries);
    cerrno describe(ReadTxn &txn, const WatchPtr &watch, const std::string &key, std::uint32_t operation,
                    std::vector<Delivery> &deliveries);
    void call(const Delivery &delivery);

    std::mutex mutex_;
    std::condition_variable idle_;
    TreeState trees_[2];
    std::uint64_t last_id_ = 0;
    std::unordered_map<std::uint64_t, WatchPtr> watches_;
    std::multimap<std::string, WatchPtr, std::less<>> by_key_;
    std::unordered_map<std::int32_t, std::uint64_t> by_channel_;

    Descriptor socket_;
    std::string socket_name_;
    Descriptor timer_;
    std::uint64_t joined_generation_ = 0;  // of the operational database with this process's rows
};

}  // namespace sysdb_lmdb
