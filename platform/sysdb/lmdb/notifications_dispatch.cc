// SPDX-License-Identifier: Apache-2.0
//
// From the change log to the callbacks.

#include "host.hpp"
#include "items.hpp"
#include "notifications.hpp"

namespace sysdb_lmdb {
namespace {

// Most pending changes of a directory's watcher that does not dispatch.
constexpr std::size_t kMaxPending = 4096;

// An item that was created and then set since the last dispatch was created.
void merge(std::uint32_t &known, std::uint32_t newer) {
    const bool still_new = known == SYSDB_EVENT_CREATE && newer == SYSDB_EVENT_SET;
    known = still_new ? SYSDB_EVENT_CREATE : newer;
}

}  // namespace

void Notifications::note(Watch &watch, const Change &change) {
    if (!watch.resync) {
        const auto [entry, is_new] = watch.pending.try_emplace(std::string(change.key), change.operation);
        if (!is_new) {
            merge(entry->second, change.operation);
        }
    }
    if (watch.pending.size() > kMaxPending) {
        watch.pending.clear();
        watch.resync = true;
    }
}

void Notifications::note(const Change &change, std::string_view watched) {
    for (auto [at, end] = by_key_.equal_range(watched); at != end; ++at) {
        note(*at->second, change);
        wake(*at->second->connection);
    }
}

cerrno Notifications::note_since(Watch &watch, Tree tree) {
    return Database::instance().read(tree, [&](ReadTxn &txn) -> cerrno {
        std::uint64_t newest = 0;
        bool gap = false;
        cerrno rc = last_revision(txn, newest);
        if (rc == 0 && watch.request.since > newest) {
            return SYSDB_ERR_NOT_FOUND;
        }
        rc = rc != 0 ? rc : visit_changes(txn, watch.request.since, gap, [&watch](const Change &change) {
            const bool below = watch.is_directory() && change.key.starts_with(watch.key);
            if (below || change.key == watch.key) {
                note(watch, change);
            }
        });
        return rc == 0 && gap ? SYSDB_ERR_NOT_FOUND : rc;
    });
}

// For watches of the key itself and of a directory above it.
void Notifications::note_change(const Change &change) {
    const std::string_view key = change.key;
    note(change, key);
    std::size_t slash = key.find('/', 1);
    while (slash != std::string_view::npos && slash + 1 < key.size()) {
        note(change, key.substr(0, slash + 1));
        slash = key.find('/', slash + 1);
    }
}

void Notifications::note_everything(Tree tree) {
    for (const auto &[id, watch] : watches_) {
        if (watch->connection->prefix.tree() != tree) {
            continue;
        }
        if (watch->is_directory()) {
            watch->resync = true;
        } else {
            watch->pending.emplace(watch->key, SYSDB_EVENT_SET);
        }
        wake(*watch->connection);
    }
}

cerrno Notifications::note_changes(ReadTxn &txn) {
    const Tree tree = txn.environment().tree();
    TreeState &state = state_of(tree);
    if (state.generation != txn.environment().generation()) {
        std::uint64_t revision = 0;
        const cerrno rc = last_revision(txn, revision);
        if (rc == 0) {
            note_everything(tree);
            state.revision = revision;
            state.generation = txn.environment().generation();
        }
        return rc;
    }
    bool gap = false;
    std::uint64_t newest = state.revision;
    const cerrno rc = visit_changes(txn, state.revision, gap, [this, &newest](const Change &change) {
        note_change(change);
        newest = change.revision;
    });
    if (gap) {
        note_everything(tree);
    }
    if (rc == 0) {
        state.revision = newest;
    }
    return rc;
}

// The state decides, not the record: the record may be older than this view, and
// an unknown operation must not hide the changes before it.
cerrno Notifications::describe(ReadTxn &txn, const WatchPtr &watch, const std::string &key,
                               std::uint32_t operation, std::vector<Delivery> &deliveries) {
    Item item{SYSDB_TYPE_ANY, {}};
    const cerrno rc = find_item(txn, key, item);
    if (rc != 0 && rc != SYSDB_ERR_NOT_FOUND && rc != SYSDB_ERR_BAD_VALUE) {
        return rc;
    }
    if (rc == 0 && !value_fits(item.datatype, item.value)) {
        item = {SYSDB_TYPE_ANY, {}};  // a read of the item reports the defect
    }
    const bool deleted = rc == SYSDB_ERR_NOT_FOUND;
    if (deleted || operation != SYSDB_EVENT_CREATE) {
        operation = deleted ? SYSDB_EVENT_DELETE : SYSDB_EVENT_SET;
    }
    if ((operation & watch->request.events) != 0) {
        const std::size_t prefix = watch->connection->prefix.view().size();
        deliveries.push_back({watch, decode(std::string_view(key).substr(prefix)), operation, item.datatype,
                              std::string(item.value), state_of(watch->connection->prefix.tree()).revision});
    }
    return 0;
}

cerrno Notifications::gather_watch(ReadTxn &txn, const WatchPtr &watch, std::vector<Delivery> &deliveries) {
    if (watch->resync) {
        deliveries.push_back({watch, watch->request.path, SYSDB_EVENT_SET, SYSDB_TYPE_DIRECTORY,
                              std::string(), state_of(txn.environment().tree()).revision});
    }
    cerrno rc = 0;
    for (auto entry = watch->pending.begin(); entry != watch->pending.end() && !watch->resync && rc == 0;
         ++entry) {
        rc = describe(txn, watch, entry->first, entry->second, deliveries);
    }
    return rc;
}

cerrno Notifications::gather_tree(Tree tree, const ConnectionPtr &connection,
                                  std::vector<Delivery> &deliveries) {
    return Database::instance().read(tree, [&](ReadTxn &txn) {
        deliveries.clear();
        cerrno rc = note_changes(txn);
        std::vector<Watch *> gathered;
        for (auto at = watches_.begin(); at != watches_.end() && rc == 0; ++at) {
            if (at->second->connection == connection && at->second->has_pending()) {
                rc = gather_watch(txn, at->second, deliveries);
                gathered.push_back(at->second.get());
            }
        }
        for (Watch *watch : gathered) {
            if (rc == 0) {
                watch->pending.clear();
                watch->resync = false;
            }
        }
        return rc;
    });
}

// The wake-up may have been for connections of the other tree.
cerrno Notifications::note_for_others(Tree tree) {
    if (state_of(tree).watches == 0) {
        return 0;
    }
    return Database::instance().read(tree, [this](ReadTxn &txn) { return note_changes(txn); });
}

cerrno Notifications::gather(const ConnectionPtr &connection, std::vector<Delivery> &deliveries) {
    auto &events = connection->events;
    events.again = false;
    if (events.closed || !events.channel) {
        return 0;
    }
    clear_wakeup(*connection);
    if (events.watches == 0) {
        return 0;
    }
    drain_socket(socket_.get());
    if (timer_expired()) {
        tick(*connection);
    }
    const Tree tree = connection->prefix.tree();
    const cerrno others = note_for_others(tree == Tree::kCfg ? Tree::kOper : Tree::kCfg);
    const cerrno rc = gather_tree(tree, connection, deliveries);
    clear_wakeup(*connection);  // noting changes has woken this connection too
    return rc == 0 ? others : rc;
}

void Notifications::call(const Delivery &delivery) {
    Watch &watch = *delivery.watch;
    {
        const Lock lock(mutex_);
        if (watch.removed) {
            return;
        }
        watch.running = true;
        watch.runner = pthread_self();
    }
    const bool deleted = delivery.operation == SYSDB_EVENT_DELETE;
    sysdb_notification_t notification{};
    notification.operation = delivery.operation;
    notification.revision = delivery.revision;
    notification.path = delivery.path.c_str();
    notification.value =
        deleted || delivery.datatype == SYSDB_TYPE_DIRECTORY ? nullptr : delivery.value.data();
    notification.length = static_cast<std::uint32_t>(delivery.value.size());
    notification.datatype = delivery.datatype;
    watch.request.callback(&notification, watch.request.callback_arg, watch.request.user_ctx);
    const Lock lock(mutex_);
    watch.running = false;
    idle_.notify_all();
}

// The right to dispatch a connection; released also when bad_alloc is thrown.
class Notifications::Turn {
  public:
    Turn(Notifications &all, Connection &connection) : all_(all), events_(connection.events) {
        const Lock lock(all_.mutex_);
        mine_ = !events_.dispatching;
        events_.dispatching = true;
        events_.again = !mine_;
    }
    ~Turn() {
        const Lock lock(all_.mutex_);
        if (mine_) {
            events_.dispatching = false;
        }
    }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

    bool mine() const { return mine_; }
    // Ends the turn unless another thread has asked for a further round.
    bool another_round() {
        const Lock lock(all_.mutex_);
        mine_ = events_.again && !events_.closed;
        events_.dispatching = mine_;
        return mine_;
    }

  private:
    Notifications &all_;
    ConnectionEvents &events_;
    bool mine_;
};

cerrno Notifications::dispatch(const ConnectionPtr &connection) {
    Turn turn(*this, *connection);
    if (!turn.mine()) {
        return 0;
    }
    cerrno rc = 0;
    do {
        std::vector<Delivery> deliveries;
        {
            const Lock lock(mutex_);
            rc = gather(connection, deliveries);
        }
        for (const Delivery &delivery : deliveries) {
            call(delivery);
        }
    } while (turn.another_round());
    return rc;
}

}  // namespace sysdb_lmdb
