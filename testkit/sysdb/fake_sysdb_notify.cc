// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: change notification.

#include "platform/sysdb.h"
#include "platform/sysdb_changes.h"

#include <sys/eventfd.h>

#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {

using detail::Access;
using detail::Call;
using detail::problem;

namespace {

bool is_directory(std::string_view path) {
    return path.ends_with('/');
}

bool concerns(const Notification &registered, const std::string &path) {
    return is_directory(registered.path) ? path.starts_with(registered.path) : path == registered.path;
}

// Created and then set since the last dispatch is created.
void merge(uint32_t &known, uint32_t newer) {
    const bool still_new = known == SYSDB_EVENT_CREATE && newer == SYSDB_EVENT_SET;
    known = still_new ? SYSDB_EVENT_CREATE : newer;
}

void note(Watch &watch, const std::string &path, uint32_t operation) {
    const auto [entry, is_new] = watch.pending.emplace(path, operation);
    if (!is_new) {
        merge(entry->second, operation);
    }
}

// The report to a callback about one path as it is now.
struct Delivery {
    WatchPtr watch;
    std::string path;  // relative to the connection
    Item item;
    uint32_t operation;
    uint64_t revision;
};

bool exists(const std::string &path) {
    return is_directory(path) ? db().directories.contains(path) : db().items.contains(path);
}

Item item_at(const std::string &path) {
    if (is_directory(path)) {
        return {SYSDB_TYPE_DIRECTORY, {}, true};
    }
    const Item &item = db().items.at(path);
    const auto length = static_cast<uint32_t>(item.value.size());
    return value_fits(item.type, item.value.data(), length) ? item : Item{SYSDB_TYPE_ANY, {}, true};
}

void describe(const WatchPtr &watch, const std::string &path, uint32_t operation,
              std::vector<Delivery> &deliveries) {
    const bool there = exists(path);
    if (!there || operation != SYSDB_EVENT_CREATE) {
        operation = there ? SYSDB_EVENT_SET : SYSDB_EVENT_DELETE;
    }
    if ((operation & watch->registered.events) != 0) {
        const std::size_t prefix = db().connections.at(watch->connection)->path.size();
        deliveries.push_back({watch, path.substr(prefix),
                              there ? item_at(path) : Item{SYSDB_TYPE_ANY, {}, true}, operation,
                              db().revision});
    }
}

std::vector<Delivery> take_changes(uint64_t conn) {
    std::vector<Delivery> deliveries;
    for (const auto &[handle, watch] : db().watches) {
        if (watch->connection != conn) {
            continue;
        }
        if (watch->initial_directory) {
            const std::size_t prefix = db().connections.at(conn)->path.size();
            deliveries.push_back({watch,
                                  watch->registered.path.substr(prefix),
                                  {SYSDB_TYPE_DIRECTORY, {}, true},
                                  SYSDB_EVENT_SET,
                                  db().revision});
            watch->pending.clear();
            watch->initial_directory = false;
        }
        for (const auto &[path, operation] : std::exchange(watch->pending, {})) {
            describe(watch, path, operation, deliveries);
        }
    }
    return deliveries;
}

// Without the lock, but for the question whether the watch is still there.
void call_back(const Delivery &delivery) {
    Watch &watch = *delivery.watch;
    const std::lock_guard<std::recursive_mutex> running(watch.calling);
    {
        const Access access;
        if (watch.removed) {
            return;
        }
    }
    sysdb_notification_t told{};
    told.operation = delivery.operation;
    told.revision = delivery.revision;
    told.path = delivery.path.c_str();
    told.value = delivery.item.null_value ? nullptr : delivery.item.value.data();
    told.length = static_cast<uint32_t>(delivery.item.value.size());
    told.datatype = delivery.item.type;
    const Notification &registered = watch.registered;
    registered.callback(&told, registered.callback_arg, registered.user_ctx);
}

void clear_wakeup(const Connection &conn) {
    if (conn.channel >= 0) {
        eventfd_t ignored = 0;
        static_cast<void>(eventfd_read(conn.channel, &ignored));
    }
}

// One thread at a time calls back for a connection, so that changes are reported
// in order. Another thread that calls meanwhile leaves the work to it.
void dispatch(Call &call, uint64_t handle, Connection &conn) {
    conn.again = true;
    if (std::exchange(conn.dispatching, true)) {
        return;
    }
    while (std::exchange(conn.again, false) && db().connections.contains(handle)) {
        clear_wakeup(conn);
        const std::vector<Delivery> deliveries = take_changes(handle);
        call.unlocked([&] {
            for (const Delivery &delivery : deliveries) {
                call_back(delivery);
            }
        });
    }
    conn.dispatching = false;
}

bool makes_sense(uint32_t events, uint32_t mode) {
    constexpr uint32_t kEvents = SYSDB_EVENT_SET | SYSDB_EVENT_DELETE;
    constexpr uint32_t kExclusive = SYSDB_NOTIFY_INITIAL | SYSDB_NOTIFY_SINCE;
    constexpr uint32_t kModes = SYSDB_NOTIFY_CHANGES | kExclusive;
    return (events & kEvents) != 0 && (mode & SYSDB_NOTIFY_CHANGES) != 0 && (mode & ~kModes) == 0 &&
           (mode & kExclusive) != kExclusive;
}

cerrno watched_path(const Connection &conn, std::string_view path, std::string &full) {
    const bool directory = path.empty() || is_directory(path);
    return directory ? directory_path(conn, path, full) : item_path(conn, path, full);
}

void report_initially(Watch &watch) {
    watch.initial_directory = is_directory(watch.registered.path);
    if (!watch.initial_directory) {
        note(watch, watch.registered.path, SYSDB_EVENT_SET);
    }
    wake(*db().connections.at(watch.connection));
}

}  // namespace

void wake(const Connection &conn) {
    if (conn.channel >= 0) {
        static_cast<void>(eventfd_write(conn.channel, 1));
    }
}

void note_change(const std::string &path, uint32_t operation) {
    ++db().revision;
    for (const auto &[handle, watch] : db().watches) {
        if (concerns(watch->registered, path)) {
            note(*watch, path, operation);
            wake(*db().connections.at(watch->connection));
        }
    }
}

std::vector<WatchPtr> remove_watches(uint64_t conn) {
    std::vector<WatchPtr> removed;
    for (const auto &[handle, watch] : db().watches) {
        if (watch->connection == conn) {
            watch->removed = true;
            removed.push_back(watch);
        }
    }
    std::erase_if(db().watches, [](const auto &entry) { return entry.second->removed; });
    return removed;
}

void wait_until_idle(const std::vector<WatchPtr> &watches) {
    for (const WatchPtr &watch : watches) {
        const std::lock_guard<std::recursive_mutex> idle(watch->calling);
    }
}

std::vector<Notification> notifications() {
    const Access access;
    std::vector<Notification> result;
    for (const auto &[handle, watch] : db().watches) {
        result.push_back(watch->registered);
    }
    return result;
}

int32_t notify(uint64_t handle, const void *notification) {
    Notification registered{};
    {
        const Access access;
        const auto found = db().watches.find(handle);
        if (found == db().watches.end()) {
            problem("no such notification is registered");
            return -1;
        }
        registered = found->second->registered;
    }
    return registered.callback(notification, registered.callback_arg, registered.user_ctx);
}

}  // namespace fake::sysdb

using namespace fake::sysdb;
using fake::detail::Call;
using fake::detail::Conn;
using fake::detail::problem;
using fake::detail::Word;

cerrno _sysdb_register_notification(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode,
                                    aaa_notify_cb_t callback, void *callback_arg, uint64_t zero7,
                                    void *user_ctx, uint64_t zero9, uint64_t *notification) {
    const Call call("_sysdb_register_notification", Conn{conn}, path, events, mode,
                    Word{callback == nullptr ? "null" : "ptr"}, callback_arg, zero7, user_ctx, zero9);
    if (call.scripted()) {
        return *call.scripted();
    }
    if (path == nullptr || callback == nullptr || notification == nullptr || !makes_sense(events, mode)) {
        return SYSDB_ERR_INVALID_ARG;
    }
    if ((mode & SYSDB_NOTIFY_SINCE) != 0) {
        return SYSDB_ERR_NOT_SUPPORTED;  // it has no log of changes
    }
    const Connection *const open = connection(conn, "_sysdb_register_notification");
    if (open == nullptr) {
        return kBadHandle;
    }
    const auto watch = std::make_shared<Watch>();
    const uint64_t handle = new_handle();
    watch->connection = conn;
    watch->registered = {handle, "", events, mode, callback, callback_arg, user_ctx};
    const cerrno rc = watched_path(*open, path, watch->registered.path);
    if (rc != 0) {
        return rc;
    }
    db().watches.emplace(handle, watch);
    if ((mode & SYSDB_NOTIFY_INITIAL) != 0) {
        report_initially(*watch);
    }
    *notification = handle;
    return 0;
}

cerrno sysdb_notification_unregister(sysdb_conn_t conn, uint64_t notification) {
    Call call("sysdb_notification_unregister", Conn{conn});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (notification == 0) {
        return 0;
    }
    if (connection(conn, "sysdb_notification_unregister") == nullptr) {
        return kBadHandle;
    }
    const auto found = db().watches.find(notification);
    if (found == db().watches.end() || found->second->connection != conn) {
        problem("sysdb_notification_unregister of a notification that is not registered");
        return kBadHandle;
    }
    const WatchPtr watch = found->second;
    watch->removed = true;
    db().watches.erase(found);
    call.unlocked([&] { wait_until_idle({watch}); });
    return 0;
}

cerrno sysdb_dispatch(sysdb_conn_t conn) {
    Call call("sysdb_dispatch", Conn{conn});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (connection(conn, "sysdb_dispatch") == nullptr) {
        return kBadHandle;
    }
    const std::shared_ptr<Connection> open = db().connections.at(conn);
    dispatch(call, conn, *open);
    return 0;
}
