// SPDX-License-Identifier: Apache-2.0
//
// The fake platform's system database: items by full path, in memory.

#include "platform/sysdb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include "support/fake_libc.h"
#include "support/fake_platform.hpp"
#include "support/fake_state.hpp"

namespace fake::sysdb {
namespace {

using detail::Access;
using detail::Call;
using detail::Conn;
using detail::problem;

// Names list in byte order, except that a name's leading "0x" number of one
// to eight hex digits counts by its value: 0x2 before 0x10.
std::string name_key(std::string_view name) {
    if (!name.starts_with("0x")) {
        return std::string(name);
    }
    std::size_t digits = 0;
    while (2 + digits < name.size() && std::isxdigit(static_cast<unsigned char>(name[2 + digits])) != 0) {
        ++digits;
    }
    const std::size_t end = 2 + digits;
    if (digits == 0 || digits > 8 || (end < name.size() && name[end] != ',' && name[end] != '/')) {
        return std::string(name);
    }
    return "0x" + std::string(1, static_cast<char>(digits)) + std::string(name.substr(2));
}

struct NameOrder {
    bool operator()(const std::string &a, const std::string &b) const { return name_key(a) < name_key(b); }
};

struct List {
    std::vector<std::pair<std::string, uint32_t>> entries;
    std::size_t next = 0;
    bool started = false;
};

struct Connection {
    std::string path;
    uint32_t flags;
};

struct Database {
    std::map<std::string, Item> items;
    std::set<std::string> directories;  // made explicitly, ending in '/'
    std::map<uint64_t, Connection> connections;
    std::map<sysdb_list_t, std::unique_ptr<List>> lists;
    std::map<uint64_t, std::pair<uint64_t, Notification>>
        notifications;  // by handle: connection, registration
    bool list_on_failure = false;
    bool present = true;
};

Database &db() {
    static Database &instance = *new Database;
    return instance;
}

// Never the same twice in a process, so that a handle kept too long is seen.
uint64_t new_handle() {
    static uint64_t last = 0x5DB0000000;
    return ++last;
}

const Connection *connection(uint64_t handle, const char *who) {
    const auto found = db().connections.find(handle);
    if (found == db().connections.end()) {
        problem(std::string(who) + " on a connection that is not open");
        return nullptr;
    }
    return &found->second;
}

std::string full_path(const Connection &conn, const char *path) {
    return conn.path + (path == nullptr ? "" : path);
}

std::string directory_path(const Connection &conn, const char *path) {
    std::string full = full_path(conn, path);
    if (full.empty() || full.back() != '/') {
        full += '/';
    }
    return full;
}

bool directory_exists(const std::string &directory) {
    const auto below = [&](const auto &set, const auto &name) {
        const auto at = set.lower_bound(directory);
        return at != set.end() && name(*at).starts_with(directory);
    };
    return below(db().items, [](const auto &entry) -> const std::string & { return entry.first; }) ||
           below(db().directories, [](const std::string &entry) -> const std::string & { return entry; });
}

// Entries directly below a directory; sub-directories end in '/'.
std::map<std::string, uint32_t, NameOrder> entries_below(const std::string &directory) {
    std::map<std::string, uint32_t, NameOrder> entries;
    const auto add = [&](const std::string &path, uint32_t type) {
        if (path.starts_with(directory) && path.size() > directory.size()) {
            const std::string rest = path.substr(directory.size());
            const std::size_t slash = rest.find('/');
            entries.emplace(rest.substr(0, slash == std::string::npos ? slash : slash + 1),
                            slash == std::string::npos ? type : SYSDB_TYPE_DIRECTORY);
        }
    };
    for (const auto &[path, item] : db().items) {
        add(path, item.type);
    }
    for (const std::string &path : db().directories) {
        add(path, SYSDB_TYPE_DIRECTORY);
    }
    return entries;
}

sysdb_list_t new_list(const std::string &directory) {
    auto list = std::make_unique<List>();
    for (const auto &[name, type] : entries_below(directory)) {
        list->entries.emplace_back(name, type);
    }
    const sysdb_list_t handle = list.get();
    db().lists.emplace(handle, std::move(list));
    return handle;
}

cerrno list_directory(Call &call, const char *who, sysdb_conn_t conn, const char *path, uint32_t *count,
                      sysdb_list_t *list) {
    const Connection *const open = connection(conn, who);
    if (open == nullptr) {
        return kBadHandle;
    }
    const std::string directory = directory_path(*open, path);
    if (call.scripted()) {
        if (db().list_on_failure) {
            *list = new_list(directory);
        }
        return *call.scripted();
    }
    if (!directory_exists(directory)) {
        return SYSDB_ERR_NOT_FOUND;
    }
    *list = new_list(directory);
    *count = static_cast<uint32_t>(db().lists[*list]->entries.size());
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

void set_present(bool on) {
    const Access access;
    db().present = on;
}

void put(std::string_view path, Item item) {
    const Access access;
    db().items.insert_or_assign(std::string(path), std::move(item));
}

void put_u32(std::string_view path, uint32_t value) {
    Item item{SYSDB_TYPE_U32, std::vector<uint8_t>(sizeof value)};
    std::memcpy(item.value.data(), &value, sizeof value);
    put(path, std::move(item));
}

void put_string(std::string_view path, std::string_view text) {
    Item item{SYSDB_TYPE_STRING, std::vector<uint8_t>(text.begin(), text.end())};
    item.value.push_back(0);
    put(path, std::move(item));
}

void put_tuple(std::string_view path, std::vector<uint32_t> numbers, std::vector<std::string> names) {
    put(path, {SYSDB_TYPE_TUPLE, tuple(numbers, names)});
}

void make_directory(std::string_view path) {
    const Access access;
    std::string directory(path);
    if (directory.empty() || directory.back() != '/') {
        directory += '/';
    }
    db().directories.insert(std::move(directory));
}

void remove(std::string_view path) {
    const Access access;
    db().items.erase(std::string(path));
    db().directories.erase(std::string(path));
}

std::optional<Item> get(std::string_view path) {
    const Access access;
    const auto found = db().items.find(std::string(path));
    return found == db().items.end() ? std::nullopt : std::optional(found->second);
}

std::optional<uint32_t> get_u32(std::string_view path) {
    const auto item = get(path);
    if (!item || item->type != SYSDB_TYPE_U32 || item->value.size() != sizeof(uint32_t)) {
        return std::nullopt;
    }
    uint32_t value = 0;
    std::memcpy(&value, item->value.data(), sizeof value);
    return value;
}

std::optional<std::string> get_string(std::string_view path) {
    const auto item = get(path);
    if (!item || item->type != SYSDB_TYPE_STRING || item->value.empty() || item->value.back() != 0) {
        return std::nullopt;
    }
    return std::string(item->value.begin(), item->value.end() - 1);
}

std::vector<std::string> paths() {
    const Access access;
    std::vector<std::string> result;
    for (const auto &[path, item] : db().items) {
        result.push_back(path);
    }
    return result;
}

void set_list_on_failure(bool on) {
    const Access access;
    db().list_on_failure = on;
}

std::vector<std::string> open_connections() {
    const Access access;
    std::vector<std::string> result;
    for (const auto &[handle, conn] : db().connections) {
        result.push_back(conn.path);
    }
    return result;
}

unsigned open_lists() {
    const Access access;
    return static_cast<unsigned>(db().lists.size());
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

// ---- Tuples: "FTUP", the count of numbers, the numbers, the count of names,
// then each name with its length in front. All integers are 32 bits.

namespace {
constexpr char kTupleMark[4] = {'F', 'T', 'U', 'P'};

void append(std::vector<uint8_t> &bytes, uint32_t value) {
    const auto *const raw = reinterpret_cast<const uint8_t *>(&value);
    bytes.insert(bytes.end(), raw, raw + sizeof value);
}

struct TupleReader {
    const uint8_t *at;

    uint32_t number() {
        uint32_t value = 0;
        std::memcpy(&value, at, sizeof value);
        at += sizeof value;
        return value;
    }
    std::string name() {
        const uint32_t length = number();
        std::string text(reinterpret_cast<const char *>(at), length);
        at += length;
        return text;
    }
};

std::size_t occurrences(std::string_view format, std::string_view what) {
    std::size_t n = 0;
    for (std::size_t at = format.find(what); at != std::string_view::npos; at = format.find(what, at + 1)) {
        ++n;
    }
    return n;
}
}  // namespace

std::vector<uint8_t> tuple(const std::vector<uint32_t> &numbers, const std::vector<std::string> &names) {
    std::vector<uint8_t> bytes(std::begin(kTupleMark), std::end(kTupleMark));
    append(bytes, static_cast<uint32_t>(numbers.size()));
    for (const uint32_t number : numbers) {
        append(bytes, number);
    }
    append(bytes, static_cast<uint32_t>(names.size()));
    for (const std::string &name : names) {
        append(bytes, static_cast<uint32_t>(name.size()));
        bytes.insert(bytes.end(), name.begin(), name.end());
    }
    return bytes;
}

}  // namespace fake::sysdb

namespace fake {
std::string presence_call() {
    return "access(\"" AAA_PKG_ROOT "/lib/libsysdb.so\", 4)";
}
}  // namespace fake

namespace fake::detail {

std::string connection_text(uint64_t handle) {
    if (handle == 0) {
        return "0";
    }
    const auto found = sysdb::db().connections.find(handle);
    return found == sysdb::db().connections.end() ? "closed" : found->second.path;
}

void reset_sysdb() {
    const Access access;
    auto &d = sysdb::db();
    d.items.clear();
    d.directories.clear();
    d.connections.clear();
    d.lists.clear();
    d.notifications.clear();
    d.list_on_failure = false;
    d.present = true;
}

}  // namespace fake::detail

using namespace fake::sysdb;
using fake::detail::Word;

int fake_presence(const char *path, int mode) {
    const Call call("access", path, mode);
    if (call.scripted()) {
        return static_cast<int>(*call.scripted());
    }
    return db().present ? 0 : ENOENT;
}

cerrno _sysdb_bind(sysdb_conn_t *conn, const char *path, uint32_t flags) {
    const Call call("_sysdb_bind", path, flags);
    if (call.scripted()) {
        return *call.scripted();
    }
    if (conn == nullptr || path == nullptr || path[0] != '/' || path[std::strlen(path) - 1] != '/') {
        problem("_sysdb_bind at a path that is not absolute and ended by a slash");
        return kBadHandle;
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
    const Call call("sysdb_item_get", Conn{conn}, path, *datatype, flags);
    const Connection *const open = connection(conn, "sysdb_item_get");
    if (*value != nullptr || *length != 0) {
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
    if (*datatype != 0 && *datatype != item.type) {
        return kWrongType;
    }
    *datatype = item.type;
    *value = item.null_value ? nullptr : copy_value(item.value);
    *length = item.null_value ? 0 : static_cast<uint32_t>(item.value.size());
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
    db().items.insert_or_assign(full_path(*open, path),
                                Item{datatype, std::vector<uint8_t>(bytes, bytes + length)});
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
    return db().items.erase(full_path(*open, path)) == 0 ? SYSDB_ERR_NOT_FOUND : 0;
}

cerrno sysdb_list(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags) {
    Call call("sysdb_list", Conn{conn}, path, pattern, flags);
    return list_directory(call, "sysdb_list", conn, path, count, list);
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
    if (!open->started) {
        problem("sysdb_list_next on a list that was not started");
    }
    if (open->next >= open->entries.size()) {
        return kEndOfList;
    }
    auto &[entry, entry_type] = open->entries[open->next++];
    *name = entry.data();
    *type = entry_type;
    return 0;
}

void sysdb_list_free(sysdb_list_t list) {
    const Call call("sysdb_list_free", Word{"list"});
    if (open_list(list, "sysdb_list_free") != nullptr) {
        db().lists.erase(list);
    }
}

cerrno sysdb_find(sysdb_conn_t conn, const char *path, const char *pattern, uint32_t *count,
                  sysdb_list_t *list, uint32_t flags, uint32_t depth) {
    Call call("sysdb_find", Conn{conn}, path, pattern, flags, depth);
    return list_directory(call, "sysdb_find", conn, path, count, list);
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
    *type = entries.rbegin()->second;
    return 0;
}

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
    db().notifications.erase(found);
    return 0;
}

int tuple_unpack_mask(const void *bytes, const char *format, ...) {
    Call call("tuple_unpack_mask", format);
    if (call.scripted()) {
        return static_cast<int>(*call.scripted());
    }
    TupleReader reader{static_cast<const uint8_t *>(bytes)};
    if (std::memcmp(reader.at, kTupleMark, sizeof kTupleMark) != 0) {
        call.set_errno(EBADMSG);
        return -1;
    }
    reader.at += sizeof kTupleMark;
    const std::size_t numbers = occurrences(format, "%d");
    const std::size_t names = occurrences(format, "%s");
    int result = 0;
    va_list args;
    va_start(args, format);
    if (reader.number() != numbers) {
        call.set_errno(EINVAL);
        result = -1;
    }
    for (std::size_t i = 0; result == 0 && i < numbers; ++i) {
        *va_arg(args, uint32_t *) = reader.number();
    }
    if (result == 0 && reader.number() != names) {
        call.set_errno(EINVAL);
        result = -1;
    }
    for (std::size_t i = 0; result == 0 && i < names; ++i) {
        const std::string name = reader.name().substr(0, 49);
        std::memcpy(va_arg(args, char *), name.c_str(), name.size() + 1);
    }
    va_end(args);
    return result;
}
