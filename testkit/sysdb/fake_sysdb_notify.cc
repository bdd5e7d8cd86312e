// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: change notification.

#include "platform/sysdb.h"

#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {

using detail::Access;
using detail::problem;

namespace {

bool concerns(const Notification &registered, const std::string &path) {
    return registered.path.ends_with('/') ? path.starts_with(registered.path) : path == registered.path;
}

// What a callback is told about one path as it is now.
struct Change {
    Notification registered;
    std::string path;  // relative to the connection
    std::optional<Item> item;
    uint32_t operation;
    uint64_t revision;
};

std::vector<Change> take_changes(uint64_t conn) {
    std::vector<Change> result;
    Database &d = db();
    for (const auto &[handle, entry] : d.notifications) {
        const auto changed = d.changes.find(handle);
        if (entry.first != conn || changed == d.changes.end()) {
            continue;
        }
        for (const std::string &path : changed->second) {
            const auto item = d.items.find(path);
            const bool there = item != d.items.end();
            result.push_back({entry.second, path.substr(d.connections[conn].path.size()),
                              there ? std::optional(item->second) : std::nullopt,
                              there ? SYSDB_EVENT_SET : SYSDB_EVENT_DELETE, d.revision});
        }
        d.changes.erase(changed);
    }
    return result;
}

void call_back(const Change &change) {
    sysdb_notification_t told{};
    told.operation = change.operation;
    told.revision = change.revision;
    told.path = change.path.c_str();
    if (change.item) {
        told.value = change.item->value.data();
        told.length = static_cast<uint32_t>(change.item->value.size());
        told.datatype = change.item->type;
    }
    change.registered.callback(&told, change.registered.callback_arg, change.registered.user_ctx);
}

}  // namespace

void note_change(const std::string &path, uint32_t event) {
    ++db().revision;
    for (const auto &[handle, entry] : db().notifications) {
        if (concerns(entry.second, path) && (entry.second.events & event) != 0) {
            db().changes[handle].insert(path);
        }
    }
}

std::vector<Notification> notifications() {
    const Access access;
    std::vector<Notification> result;
    for (const auto &[handle, entry] : db().notifications) {
        result.push_back(entry.second);
    }
    return result;
}

int32_t notify(uint64_t handle, const void *notification) {
    Notification registered{};
    {
        const Access access;
        const auto found = db().notifications.find(handle);
        if (found == db().notifications.end()) {
            problem("no such notification is registered");
            return -1;
        }
        registered = found->second.second;
    }
    return registered.callback(notification, registered.callback_arg, registered.user_ctx);
}

}  // namespace fake::sysdb

using namespace fake::sysdb;
using fake::detail::Call;
using fake::detail::Conn;
using fake::detail::Word;

cerrno _sysdb_register_notification(sysdb_conn_t conn, const char *path, uint32_t events, uint32_t mode,
                                    aaa_notify_cb_t callback, void *callback_arg, uint64_t zero7,
                                    void *user_ctx, uint64_t zero9, uint64_t *notification) {
    const Call call("_sysdb_register_notification", Conn{conn}, path, events, mode,
                    Word{callback == nullptr ? "null" : "ptr"}, callback_arg, zero7, user_ctx, zero9);
    if (call.scripted()) {
        return *call.scripted();
    }
    const Connection *const open = connection(conn, "_sysdb_register_notification");
    if (open == nullptr) {
        return kBadHandle;
    }
    const uint64_t handle = new_handle();
    db().notifications.emplace(handle, std::pair(conn, Notification{handle, full_path(*open, path), events,
                                                                    mode, callback, callback_arg, user_ctx}));
    if ((mode & SYSDB_NOTIFY_INITIAL) != 0) {
        for (const auto &[item_path, item] : db().items) {
            if (concerns(db().notifications.at(handle).second, item_path)) {
                db().changes[handle].insert(item_path);
            }
        }
    }
    *notification = handle;
    return 0;
}

cerrno sysdb_notification_unregister(sysdb_conn_t conn, uint64_t notification) {
    const Call call("sysdb_notification_unregister", Conn{conn});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (notification == 0) {
        return 0;
    }
    if (connection(conn, "sysdb_notification_unregister") == nullptr) {
        return kBadHandle;
    }
    const auto found = db().notifications.find(notification);
    if (found == db().notifications.end() || found->second.first != conn) {
        problem("sysdb_notification_unregister of a notification that is not registered");
        return kBadHandle;
    }
    db().changes.erase(notification);
    db().notifications.erase(found);
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
    const std::vector<Change> changes = take_changes(conn);
    call.unlocked([&] {
        for (const Change &change : changes) {
            call_back(change);
        }
    });
    return 0;
}
