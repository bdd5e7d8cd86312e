// SPDX-License-Identifier: Apache-2.0
//
// The table of functions that the platform calls. Each checks handle and path and
// forwards. Exhausted memory becomes a code here.

#include "provider.hpp"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "changes.hpp"
#include "connections.hpp"
#include "host.hpp"
#include "items.hpp"
#include "listing.hpp"
#include "notifications.hpp"
#include "watch_table.hpp"

namespace sysdb_lmdb {
namespace {

// call(key) for the item or directory that a path names below a connection.
enum class Kind { kItem, kDirectory };
template <typename Call>
cerrno on_key(sysdb_conn_t conn, const char *path, Kind kind, Call call) {
    return on_connection(conn, [&](const ConnectionPtr &connection) {
        Key key = connection->prefix;
        const cerrno rc = kind == Kind::kItem ? key.append_item(path) : key.append_directory(path);
        return rc == 0 ? call(key) : rc;
    });
}

// Once per process that uses watches: removes rows and sockets of processes that
// died. Processes that only read configuration need no access to the run directory
// and do not call this.
void sweep_once() {
    static constinit std::atomic<bool> done{false};
    if (!done.exchange(true, std::memory_order_relaxed)) {
        sweep_watchers();
    }
}

cerrno bind(sysdb_conn_t *conn, const char *path, uint32_t flags) {
    constexpr uint32_t kReading = SYSDB_BIND_PRIVATE | SYSDB_BIND_EXISTING;
    if (flags != SYSDB_BIND_PRIVATE && flags != SYSDB_BIND_SHARED && flags != kReading) {
        return SYSDB_ERR_INVALID_ARG;
    }
    return guarded([&] {
        Key prefix;
        cerrno rc = prefix.assign_bind_path(path);
        // Libraries bind shared connections in every program, and most programs only read, some as users who
        // could not make a database: for those the first change makes it.
        const bool makes = flags == SYSDB_BIND_PRIVATE;
        const bool exists = rc != 0 || makes || Database::instance().exists(prefix.tree());
        if (!exists && flags == kReading) {
            rc = SYSDB_ERR_NOT_FOUND;
        }
        if (rc == 0 && exists) {
            rc = Database::instance().with(prefix.tree(), [](const Environment &) -> cerrno { return 0; });
        }
        if (rc == 0) {
            if (exists && prefix.tree() == Tree::kOper) {
                sweep_once();
            }
            *conn = Connections::instance().add(prefix);
        }
        return rc;
    });
}

cerrno unbind(sysdb_conn_t conn) {
    return guarded([&]() -> cerrno {
        const ConnectionPtr connection = Connections::instance().remove(conn);
        if (connection == nullptr) {
            return SYSDB_ERR_BAD_HANDLE;
        }
        Notifications::instance().close(connection);
        return 0;
    });
}

cerrno conn_to_coid(sysdb_conn_t conn, int32_t *coid) {
    return on_connection(conn, [&](const ConnectionPtr &connection) {
        return Notifications::instance().channel_of(connection, *coid);
    });
}

cerrno copy_out(const Item &item, uint32_t *datatype, void **value, uint32_t *length) {
    void *copy = std::malloc(item.value.size() > 0 ? item.value.size() : 1);
    if (copy == nullptr) {
        return SYSDB_ERR_NOMEM;
    }
    item.value.copy(static_cast<char *>(copy), item.value.size());
    *datatype = item.datatype;
    *value = copy;
    *length = static_cast<uint32_t>(item.value.size());
    return 0;
}

cerrno report_no_type(const Environment &environment, const Key &key) {
    log(kLogError, "database %s: item %s has no type; set it again or delete it", environment.file().c_str(),
        decode(key.view()).c_str());
    return SYSDB_ERR_BAD_VALUE;
}

cerrno report_type(const Key &key, uint32_t expected, uint32_t found) {
    const std::string path = decode(key.view());
    log(kLogWarning, "item %s is of type %u where type %u is expected; set it again with the right type",
        path.c_str(), found, expected);
    return SYSDB_ERR_TYPE_MISMATCH;
}

cerrno item_get(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value, uint32_t *length,
                uint32_t) {
    return on_key(conn, path, Kind::kItem, [&](const Key &key) {
        return Database::instance().look(key.tree(), [&](ReadTxn &txn) {
            Item item;
            const cerrno rc = find_item(txn, key.view(), item);
            if (rc == SYSDB_ERR_BAD_VALUE) {
                txn.end();
                return report_no_type(txn.environment(), key);
            }
            if (rc == 0 && *datatype != SYSDB_TYPE_ANY && *datatype != item.datatype) {
                txn.end();
                return report_type(key, *datatype, item.datatype);
            }
            return rc == 0 ? copy_out(item, datatype, value, length) : rc;
        });
    });
}

// Notifies after the commit, also when no watch is in the caller's process.
template <typename Change>
cerrno change(sysdb_conn_t conn, const char *path, Kind kind, Change make_change) {
    return on_key(conn, path, kind, [&](const Key &key) {
        ChangedKeys changed;
        const cerrno rc = make_change(key, changed);
        if (rc == 0) {
            notify_watchers(changed);
        }
        return rc;
    });
}

bool names_a_directory(const char *path) {
    return std::string_view(path).ends_with('/');
}

cerrno item_set(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value, uint32_t length,
                uint32_t) {
    const bool directory = datatype == SYSDB_TYPE_DIRECTORY;
    if (directory && !names_a_directory(path)) {
        return SYSDB_ERR_BAD_PATH;
    }
    const std::string_view bytes(static_cast<const char *>(value), length);
    return change(
        conn, path, directory ? Kind::kDirectory : Kind::kItem,
        [&](const Key &key, ChangedKeys &changed) { return store_item(key, datatype, bytes, changed); });
}

cerrno item_delete(sysdb_conn_t conn, const char *path, uint32_t flags) {
    const bool is_tree = (flags & SYSDB_DELETE_TREE) != 0;
    return change(conn, path, is_tree || names_a_directory(path) ? Kind::kDirectory : Kind::kItem,
                  [&](const Key &key, ChangedKeys &changed) -> cerrno {
                      if (!Database::instance().exists(key.tree())) {
                          return SYSDB_ERR_NOT_FOUND;
                      }
                      return is_tree ? delete_directory(key, changed) : delete_item(key, changed);
                  });
}

cerrno apply(sysdb_conn_t conn, const sysdb_change_t *changes, uint32_t count, uint32_t *failed) {
    return on_connection(conn, [&](const ConnectionPtr &connection) {
        std::vector<PlannedChange> planned;
        ChangedKeys changed;
        cerrno rc = plan_changes(connection->prefix, changes, count, planned, *failed);
        if (rc == 0) {
            rc = make_changes(connection->prefix.tree(), planned, changed, *failed);
        }
        if (rc == 0) {
            notify_watchers(changed);
        }
        return rc;
    });
}

cerrno find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count, sysdb_list_t *list,
            uint32_t, uint32_t) {
    return on_key(conn, path, Kind::kDirectory, [&](const Key &key) {
        auto listing = std::make_unique<Listing>();
        const cerrno rc = list_directory(key, *path == '\0', pattern, *listing);
        if (rc == 0 && count != nullptr) {
            *count = static_cast<uint32_t>(listing->entries.size());
        }
        if (rc == 0 && list != nullptr) {
            *list = listing.release();
        }
        return rc;
    });
}

cerrno list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count, sysdb_list_t *list_out,
            uint32_t flags) {
    return find(conn, path, pattern, count, list_out, flags, 1);
}

cerrno list_start(sysdb_list_t list_handle) {
    static_cast<Listing *>(list_handle)->next = 0;
    return 0;
}

cerrno list_next(sysdb_list_t list_handle, char **name, uint32_t *type, uint32_t) {
    auto &listing = *static_cast<Listing *>(list_handle);
    *name = nullptr;
    if (listing.next == listing.entries.size()) {
        return SYSDB_ERR_END_OF_LIST;
    }
    Entry &entry = listing.entries[listing.next++];
    *name = entry.name.data();
    if (type != nullptr) {
        *type = entry.type;
    }
    return 0;
}

void list_free(sysdb_list_t list_handle) {
    delete static_cast<Listing *>(list_handle);
}

cerrno directory_get_last(sysdb_conn_t conn, const char *path, char **name, uint32_t *type, uint32_t) {
    return on_key(conn, path, Kind::kDirectory, [&](const Key &key) -> cerrno {
        Entry entry;
        const cerrno rc = last_entry(key, entry);
        if (rc != 0) {
            return rc;
        }
        char *copy = strdup(entry.name.c_str());
        if (copy == nullptr) {
            return SYSDB_ERR_NOMEM;
        }
        *name = copy;
        if (type != nullptr) {
            *type = entry.type;
        }
        return 0;
    });
}

cerrno register_since(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode, uint64_t revision,
                      aaa_notify_cb_t callback, void *callback_arg, void *user_ctx, uint64_t *notification) {
    return on_connection(conn, [&](const ConnectionPtr &connection) {
        Key key = connection->prefix;
        const bool directory = *path == '\0' || names_a_directory(path);
        const cerrno rc = directory ? key.append_directory(path) : key.append_item(path);
        if (rc != 0) {
            return rc;
        }
        sweep_once();
        return Notifications::instance().add(
            connection, key, {path, events, mode, revision, callback, callback_arg, user_ctx}, *notification);
    });
}

cerrno register_notification(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode,
                             aaa_notify_cb_t callback, void *callback_arg, void *user_ctx,
                             uint64_t *notification) {
    return register_since(conn, path, events, mode & ~SYSDB_NOTIFY_SINCE, 0, callback, callback_arg, user_ctx,
                          notification);
}

cerrno notification_unregister(sysdb_conn_t conn, uint64_t notification) {
    return on_connection(conn, [&](const ConnectionPtr &connection) {
        return Notifications::instance().remove(connection, notification);
    });
}

cerrno dispatch(sysdb_conn_t conn) {
    return on_connection(
        conn, [](const ConnectionPtr &connection) { return Notifications::instance().dispatch(connection); });
}

cerrno dispatch_channel(int32_t coid) {
    return dispatch(Notifications::instance().connection_of(coid));
}

// In the order in which the locks are taken.
void lock_all() {
    Notifications::instance().lock_before_fork();
    Connections::instance().lock_before_fork();
    Database::instance().lock_before_fork();
    lock_descriptors_before_fork();
    lock_log_before_fork();
}

void unlock_all() {
    unlock_log_after_fork();
    unlock_descriptors_after_fork();
    Database::instance().unlock_in_parent();
    Connections::instance().unlock_after_fork();
    Notifications::instance().unlock_in_parent();
}

void reset_child() {
    unlock_log_after_fork();
    unlock_descriptors_after_fork();
    Database::instance().reset_in_child();
    Connections::instance().unlock_after_fork();
    Notifications::instance().reset_in_child();
}

__attribute__((constructor)) void watch_forks() {
    pthread_atfork(lock_all, unlock_all, reset_child);
}

constexpr sysdb_provider_t kTable = {
    SYSDB_PROVIDER_ABI,
    sizeof(sysdb_provider_t),
    "lmdb",
    bind,
    unbind,
    conn_to_coid,
    item_get,
    item_set,
    item_delete,
    list,
    list_start,
    list_next,
    list_free,
    find,
    directory_get_last,
    register_notification,
    notification_unregister,
    dispatch,
    dispatch_channel,
    apply,
    register_since,
};

}  // namespace

const sysdb_provider_t &embedded_provider(const sysdb_host_t *host) {
    set_host(host);
    return kTable;
}

}  // namespace sysdb_lmdb
