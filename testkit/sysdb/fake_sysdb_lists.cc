// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: listings.

#include "platform/sysdb.h"

#include <cstring>

#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {
namespace {

using detail::Call;
using detail::problem;

sysdb_list_t new_list(const std::string &directory, const char *pattern) {
    auto list = std::make_unique<List>();
    for (const auto &[name, type] : entries_below(directory)) {
        const std::string_view bare = std::string_view(name).substr(0, name.find('/'));
        if (pattern == nullptr || *pattern == '\0' || matches(pattern, bare)) {
            list->entries.emplace_back(name, type);
        }
    }
    const sysdb_list_t handle = list.get();
    db().lists.emplace(handle, std::move(list));
    return handle;
}

cerrno list_directory(const Call &call, const char *who, sysdb_conn_t conn, const char *path,
                      const char *pattern, uint32_t *count, sysdb_list_t *list) {
    const Connection *const open = connection(conn, who);
    if (open == nullptr) {
        return kBadHandle;
    }
    std::string directory;
    const cerrno rc = directory_path(*open, path, directory);
    if (call.scripted()) {
        if (db().list_on_failure) {
            *list = new_list(directory, pattern);
        }
        return *call.scripted();
    }
    if (rc != 0 || (directory != open->path && !directory_exists(directory))) {
        return rc != 0 ? rc : SYSDB_ERR_NOT_FOUND;
    }
    const sysdb_list_t made = new_list(directory, pattern);
    if (count != nullptr) {
        *count = static_cast<uint32_t>(db().lists[made]->entries.size());
    }
    if (list != nullptr) {
        *list = made;
    } else {
        db().lists.erase(made);
    }
    return 0;
}

// A null list is the caller's mistake with a code; the library makes none.
bool is_null(sysdb_list_t handle) {
    return handle == nullptr && !detail::strict();
}

List *open_list(sysdb_list_t handle, const char *who) {
    const auto found = db().lists.find(handle);
    if (found == db().lists.end()) {
        problem(std::string(who) + " on a list that is not open");
        return nullptr;
    }
    return found->second.get();
}

cerrno next_entry(List &list, char **name, uint32_t *type) {
    if (!list.started && detail::strict()) {
        problem("sysdb_list_next on a list that was not started");
    }
    if (list.next >= list.entries.size()) {
        if (!detail::strict()) {
            *name = nullptr;
        }
        return kEndOfList;
    }
    auto &[entry, entry_type] = list.entries[list.next++];
    *name = entry.data();
    if (type != nullptr) {
        *type = entry_type;
    }
    return 0;
}

}  // namespace
}  // namespace fake::sysdb

using namespace fake::sysdb;
using fake::detail::Call;
using fake::detail::Conn;
using fake::detail::Word;

cerrno sysdb_list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags) {
    const Call call("sysdb_list", Conn{conn}, path, pattern, flags);
    if (path == nullptr || list == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    return list_directory(call, "sysdb_list", conn, path, pattern, count, list);
}

cerrno sysdb_find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags, uint32_t depth) {
    const Call call("sysdb_find", Conn{conn}, path, pattern, flags, depth);
    if (path == nullptr || flags != 0 || depth > 1) {
        return SYSDB_ERR_INVALID_ARG;
    }
    return list_directory(call, "sysdb_find", conn, path, pattern, count, list);
}

cerrno sysdb_list_start(sysdb_list_t list) {
    const Call call("sysdb_list_start", Word{"list"});
    if (is_null(list)) {
        return SYSDB_ERR_INVALID_ARG;
    }
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
    if (is_null(list) || name == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    List *const open = open_list(list, "sysdb_list_next");
    if (call.scripted() || open == nullptr) {
        return call.scripted().value_or(kBadHandle);
    }
    return next_entry(*open, name, type);
}

void sysdb_list_free(sysdb_list_t list) {
    const Call call("sysdb_list_free", Word{"list"});
    if (!is_null(list) && open_list(list, "sysdb_list_free") != nullptr) {
        db().lists.erase(list);
    }
}

cerrno sysdb_directory_get_last(sysdb_conn_t conn, const char *path, char **name, uint32_t *type,
                                uint32_t flags) {
    const Call call("sysdb_directory_get_last", Conn{conn}, path, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    if (path == nullptr || name == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const Connection *const open = connection(conn, "sysdb_directory_get_last");
    if (open == nullptr) {
        return kBadHandle;
    }
    std::string directory;
    const cerrno rc = directory_path(*open, path, directory);
    if (rc != 0) {
        return rc;
    }
    const auto entries = entries_below(directory);
    if (entries.empty()) {
        return SYSDB_ERR_NOT_FOUND;
    }
    *name = strdup(entries.rbegin()->first.c_str());
    if (type != nullptr) {
        *type = entries.rbegin()->second;
    }
    return 0;
}
