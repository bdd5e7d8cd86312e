// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: connections and items as the platform contract has
// them.

#include "platform/sysdb.h"

#include <sys/eventfd.h>

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

// Exactly as long as the value, so that a read past its end is seen.
void *copy_value(const std::vector<uint8_t> &value) {
    void *const copy = std::malloc(value.empty() ? 1 : value.size());
    if (copy != nullptr && !value.empty()) {
        std::memcpy(copy, value.data(), value.size());
    }
    return copy;
}

// A new channel is readable when there is something to report already.
cerrno make_channel(uint64_t handle, Connection &conn) {
    conn.channel = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (conn.channel < 0) {
        return SYSDB_ERR_STORAGE;
    }
    for (const auto &[id, watch] : db().watches) {
        if (watch->connection == handle && (watch->initial_directory || !watch->pending.empty())) {
            wake(conn);
        }
    }
    return 0;
}

std::string shown_value(uint32_t datatype, const void *value, uint32_t length) {
    const auto *const bytes = static_cast<const uint8_t *>(value);
    if (bytes == nullptr) {
        return "null";
    }
    if (datatype == SYSDB_TYPE_U32 && length == sizeof(uint32_t)) {
        uint32_t number = 0;
        std::memcpy(&number, bytes, sizeof number);
        return std::to_string(number);
    }
    return '"' + std::string(bytes, bytes + (length == 0 ? 0 : length - 1)) + '"';
}

cerrno set_directory(const Connection &open, const char *path) {
    std::string full;
    const cerrno rc =
        std::string_view(path).ends_with('/') ? directory_path(open, path, full) : SYSDB_ERR_BAD_PATH;
    if (rc == 0) {
        store_directory(full);
    }
    return rc;
}

cerrno set_item(const Connection &open, const char *path, Item item) {
    std::string full;
    const cerrno rc = item_path(open, path, full);
    if (rc == 0 && item.value.size() > kLongestValue) {
        return SYSDB_ERR_VALUE_TOO_LARGE;
    }
    if (rc == 0) {
        store_item(full, std::move(item));
    }
    return rc;
}

template <typename Container>
std::vector<std::string> paths_below(const Container &all, const std::string &directory) {
    std::vector<std::string> paths;
    for (const auto &entry : below(all, directory)) {
        paths.push_back(path_of(entry));
    }
    return paths;
}

cerrno delete_tree(const std::string &directory) {
    const auto items = paths_below(db().items, directory);
    const auto directories = paths_below(db().directories, directory);
    for (const std::string &path : items) {
        erase_item(path);
    }
    for (const std::string &path : directories) {
        erase_directory(path);
    }
    return items.empty() && directories.empty() ? SYSDB_ERR_NOT_FOUND : 0;
}

cerrno delete_path(const Connection &open, std::string_view path, bool tree) {
    const bool directory = tree || path.ends_with('/');
    std::string full;
    const cerrno rc = directory ? directory_path(open, path, full) : item_path(open, path, full);
    if (rc != 0 || tree) {
        return rc != 0 ? rc : delete_tree(full);
    }
    return (directory ? erase_directory(full) : erase_item(full)) ? 0 : SYSDB_ERR_NOT_FOUND;
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
    if (conn == nullptr || path == nullptr || (flags != SYSDB_BIND_PRIVATE && flags != SYSDB_BIND_SHARED)) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const cerrno rc = check_bind_path(path);
    if (rc != 0) {
        if (fake::detail::strict()) {
            problem("_sysdb_bind at " + std::string(path) + ", which is not a directory of the database");
        }
        return rc;
    }
    // The library is supposed to look for the provider's file first.
    if (!db().present && !fake::detail::strict()) {
        return SYSDB_ERR_LIB_ABSENT;
    }
    const uint64_t handle = new_handle();
    db().connections.emplace(handle, std::make_shared<Connection>(path, flags));
    *conn = handle;
    return 0;
}

cerrno _sysdb_unbind(sysdb_conn_t conn) {
    Call call("_sysdb_unbind", Conn{conn});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (conn == 0) {
        return 0;
    }
    if (connection(conn, "_sysdb_unbind") == nullptr) {
        return kBadHandle;
    }
    const std::vector<WatchPtr> watches = remove_watches(conn);
    db().connections.erase(conn);
    call.unlocked([&] { wait_until_idle(watches); });
    return 0;
}

cerrno sysdb_conn_to_coid(sysdb_conn_t conn, int32_t *coid) {
    const Call call("sysdb_conn_to_coid", Conn{conn});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (coid == nullptr) {
        return SYSDB_ERR_INVALID_ARG;
    }
    Connection *const open = connection(conn, "sysdb_conn_to_coid");
    if (open == nullptr) {
        return kBadHandle;
    }
    const cerrno rc = open->channel < 0 ? make_channel(conn, *open) : 0;
    if (rc == 0) {
        *coid = open->channel;
    }
    return rc;
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
    if (path == nullptr || flags != 0) {
        return SYSDB_ERR_INVALID_ARG;
    }
    if (open == nullptr) {
        return kBadHandle;
    }
    std::string full;
    const cerrno rc = item_path(*open, path, full);
    if (rc != 0) {
        return rc;
    }
    const auto found = db().items.find(full);
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
    const std::string shown = shown_value(datatype, value, length);
    const Call call("sysdb_item_set", Conn{conn}, path, datatype, Word{shown}, length, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    if (path == nullptr || flags > 1 || datatype == SYSDB_TYPE_ANY) {
        return SYSDB_ERR_INVALID_ARG;
    }
    if (!value_fits(datatype, value, length)) {
        return SYSDB_ERR_BAD_VALUE;
    }
    const Connection *const open = connection(conn, "sysdb_item_set");
    if (open == nullptr) {
        return kBadHandle;
    }
    if (datatype == SYSDB_TYPE_DIRECTORY) {
        return set_directory(*open, path);
    }
    const auto *const bytes = static_cast<const uint8_t *>(value);
    return set_item(*open, path, {datatype, std::vector<uint8_t>(bytes, bytes + length)});
}

cerrno sysdb_item_delete(sysdb_conn_t conn, const char *path, uint32_t flags) {
    const Call call("sysdb_item_delete", Conn{conn}, path, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    if (path == nullptr || flags > SYSDB_DELETE_TREE) {
        return SYSDB_ERR_INVALID_ARG;
    }
    const Connection *const open = connection(conn, "sysdb_item_delete");
    return open == nullptr ? kBadHandle : delete_path(*open, path, flags == SYSDB_DELETE_TREE);
}
