// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: connections, items and listings as the platform
// contract has them.

#include "platform/sysdb.h"

#include <fnmatch.h>

#include <cstdlib>
#include <cstring>

#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {
namespace {

using detail::Call;
using detail::problem;

void store(uint32_t *out, uint32_t value) {
    if (out != nullptr) {
        *out = value;
    }
}

sysdb_list_t new_list(const std::string &directory, const char *pattern) {
    auto list = std::make_unique<List>();
    for (const auto &[name, type] : entries_below(directory)) {
        const std::string bare = name.substr(0, name.find('/'));
        if (pattern == nullptr || *pattern == '\0' || fnmatch(pattern, bare.c_str(), FNM_NOESCAPE) == 0) {
            list->entries.emplace_back(name, type);
        }
    }
    const sysdb_list_t handle = list.get();
    db().lists.emplace(handle, std::move(list));
    return handle;
}

cerrno list_directory(Call &call, const char *who, sysdb_conn_t conn, const char *path, const char *pattern,
                      uint32_t *count, sysdb_list_t *list) {
    const Connection *const open = connection(conn, who);
    if (open == nullptr) {
        return kBadHandle;
    }
    const std::string directory = directory_path(*open, path);
    if (call.scripted()) {
        if (db().list_on_failure) {
            *list = new_list(directory, pattern);
        }
        return *call.scripted();
    }
    if (!directory_exists(directory)) {
        return SYSDB_ERR_NOT_FOUND;
    }
    *list = new_list(directory, pattern);
    store(count, static_cast<uint32_t>(db().lists[*list]->entries.size()));
    return 0;
}

List *open_list(sysdb_list_t handle, const char *who) {
    const auto found = db().lists.find(handle);
    if (found == db().lists.end()) {
        problem(std::string(who) + " on a list that is not open");
        return nullptr;
    }
    return found->second.get();
}

// Exactly as long as the value, so that a read past its end is seen.
void *copy_value(const std::vector<uint8_t> &value) {
    void *const copy = std::malloc(value.empty() ? 1 : value.size());
    if (copy != nullptr && !value.empty()) {
        std::memcpy(copy, value.data(), value.size());
    }
    return copy;
}

}  // namespace
}  // namespace fake::sysdb

using namespace fake::sysdb;
using fake::detail::Call;
using fake::detail::Conn;
using fake::detail::problem;
using fake::detail::Word;

cerrno _sysdb_bind(sysdb_conn_t *conn, const char *path, uint32_t flags) {
    const Call call("_sysdb_bind", path, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    if (conn == nullptr || path == nullptr || path[0] != '/' || path[std::strlen(path) - 1] != '/') {
        problem("_sysdb_bind at a path that is not absolute and ended by a slash");
        return kBadHandle;
    }
    // The library is supposed to look for the provider's file first.
    if (!db().present && !fake::detail::strict()) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    const uint64_t handle = new_handle();
    db().connections.emplace(handle, Connection{path, flags});
    *conn = handle;
    return 0;
}

cerrno _sysdb_unbind(sysdb_conn_t conn) {
    const Call call("_sysdb_unbind", Conn{conn});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (conn == 0) {
        return kBadHandle;
    }
    if (connection(conn, "_sysdb_unbind") == nullptr) {
        return kBadHandle;
    }
    std::erase_if(db().notifications, [&](const auto &entry) { return entry.second.first == conn; });
    db().connections.erase(conn);
    return 0;
}

cerrno sysdb_conn_to_coid(sysdb_conn_t conn, int32_t *coid) {
    const Call call("sysdb_conn_to_coid", Conn{conn});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (connection(conn, "sysdb_conn_to_coid") == nullptr) {
        return kBadHandle;
    }
    *coid = static_cast<int32_t>(conn & 0xFFFF) + 1000;
    return 0;
}

cerrno sysdb_item_get(sysdb_conn_t conn, const char *path, uint32_t *datatype, void **value, uint32_t *length,
                      uint32_t flags) {
    const uint32_t wanted = datatype == nullptr ? SYSDB_TYPE_ANY : *datatype;
    const Call call("sysdb_item_get", Conn{conn}, path, wanted, flags);
    const Connection *const open = connection(conn, "sysdb_item_get");
    if (fake::detail::strict() && (*value != nullptr || *length != 0)) {
        problem("sysdb_item_get with outputs that are not zeroed");
    }
    if (call.scripted()) {
        return *call.scripted();
    }
    if (open == nullptr) {
        return kBadHandle;
    }
    const auto found = db().items.find(full_path(*open, path));
    if (found == db().items.end()) {
        return SYSDB_ERR_NOT_FOUND;
    }
    const Item &item = found->second;
    if (wanted != SYSDB_TYPE_ANY && wanted != item.type) {
        return kWrongType;
    }
    store(datatype, item.type);
    store(length, item.null_value ? 0 : static_cast<uint32_t>(item.value.size()));
    if (value != nullptr) {
        *value = item.null_value ? nullptr : copy_value(item.value);
    }
    return 0;
}

cerrno sysdb_item_set(sysdb_conn_t conn, const char *path, uint32_t datatype, const void *value,
                      uint32_t length, uint32_t flags) {
    const auto *const bytes = static_cast<const uint8_t *>(value);
    std::string shown = "null";
    if (bytes != nullptr && datatype == SYSDB_TYPE_U32 && length == sizeof(uint32_t)) {
        uint32_t number = 0;
        std::memcpy(&number, bytes, sizeof number);
        shown = std::to_string(number);
    } else if (bytes != nullptr) {
        shown = '"' + std::string(bytes, bytes + (length == 0 ? 0 : length - 1)) + '"';
    }
    const Call call("sysdb_item_set", Conn{conn}, path, datatype, Word{shown}, length, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    const Connection *const open = connection(conn, "sysdb_item_set");
    if (open == nullptr) {
        return kBadHandle;
    }
    const std::string full = full_path(*open, path);
    std::vector<uint8_t> stored(bytes, bytes + length);
    const auto before = db().items.find(full);
    const bool same =
        before != db().items.end() && before->second.type == datatype && before->second.value == stored;
    db().items.insert_or_assign(full, Item{datatype, std::move(stored)});
    if (!same) {
        note_change(full, SYSDB_EVENT_SET);
    }
    return 0;
}

cerrno sysdb_item_delete(sysdb_conn_t conn, const char *path, uint32_t flags) {
    const Call call("sysdb_item_delete", Conn{conn}, path, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    const Connection *const open = connection(conn, "sysdb_item_delete");
    if (open == nullptr) {
        return kBadHandle;
    }
    const bool tree = (flags & SYSDB_DELETE_TREE) != 0;
    const std::string full = tree ? directory_path(*open, path) : full_path(*open, path);
    bool found = tree && std::erase_if(db().directories,
                                       [&](const auto &name) { return name.starts_with(full); }) != 0;
    std::erase_if(db().items, [&](const auto &item) {
        if (tree ? !item.first.starts_with(full) : item.first != full) {
            return false;
        }
        note_change(item.first, SYSDB_EVENT_DELETE);
        return found = true;
    });
    return found ? 0 : SYSDB_ERR_NOT_FOUND;
}

cerrno sysdb_list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags) {
    Call call("sysdb_list", Conn{conn}, path, pattern, flags);
    return list_directory(call, "sysdb_list", conn, path, pattern, count, list);
}

cerrno sysdb_list_start(sysdb_list_t list) {
    const Call call("sysdb_list_start", Word{"list"});
    List *const open = open_list(list, "sysdb_list_start");
    if (call.scripted() || open == nullptr) {
        return call.scripted().value_or(kBadHandle);
    }
    open->started = true;
    open->next = 0;
    return 0;
}

cerrno sysdb_list_next(sysdb_list_t list, char **name, uint32_t *type, uint32_t flags) {
    const Call call("sysdb_list_next", Word{"list"}, flags);
    List *const open = open_list(list, "sysdb_list_next");
    if (call.scripted() || open == nullptr) {
        return call.scripted().value_or(kBadHandle);
    }
    if (!open->started && fake::detail::strict()) {
        problem("sysdb_list_next on a list that was not started");
    }
    if (open->next >= open->entries.size()) {
        if (!fake::detail::strict()) {
            *name = nullptr;
        }
        return kEndOfList;
    }
    auto &[entry, entry_type] = open->entries[open->next++];
    *name = entry.data();
    store(type, entry_type);
    return 0;
}

void sysdb_list_free(sysdb_list_t list) {
    const Call call("sysdb_list_free", Word{"list"});
    if (list == nullptr && !fake::detail::strict()) {
        return;
    }
    if (open_list(list, "sysdb_list_free") != nullptr) {
        db().lists.erase(list);
    }
}

cerrno sysdb_find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags, uint32_t depth) {
    Call call("sysdb_find", Conn{conn}, path, pattern, flags, depth);
    return list_directory(call, "sysdb_find", conn, path, pattern, count, list);
}

cerrno sysdb_directory_get_last(sysdb_conn_t conn, const char *path, char **name, uint32_t *type,
                                uint32_t flags) {
    const Call call("sysdb_directory_get_last", Conn{conn}, path, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    const Connection *const open = connection(conn, "sysdb_directory_get_last");
    if (open == nullptr) {
        return kBadHandle;
    }
    const auto entries = entries_below(directory_path(*open, path));
    if (entries.empty()) {
        return SYSDB_ERR_NOT_FOUND;
    }
    *name = strdup(entries.rbegin()->first.c_str());
    store(type, entries.rbegin()->second);
    return 0;
}
