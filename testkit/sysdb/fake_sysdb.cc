// SPDX-License-Identifier: Apache-2.0
//
// The fake platform's system database, items by full path in memory: its state,
// and the test's side.

#include "platform/sysdb.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "testkit/fake_libc.h"
#include "testkit/fake_state.hpp"
#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {

using detail::Access;
using detail::problem;

Database &db() {
    static Database &instance = *new Database;
    return instance;
}

uint64_t new_handle() {
    static uint64_t last = 0x5DB0000000;
    return ++last;
}

Connection::~Connection() {
    if (channel >= 0) {
        close(channel);
    }
}

Connection *connection(uint64_t handle, const char *who) {
    const auto found = db().connections.find(handle);
    if (found == db().connections.end()) {
        problem(std::string(who) + " on a connection that is not open");
        return nullptr;
    }
    return found->second.get();
}

void set_present(bool on) {
    const Access access;
    db().present = on;
}

void put(std::string_view path, Item item) {
    const Access access;
    store_item(std::string(path), std::move(item));
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

// As directories are kept, with the slash that callers may leave out.
static std::string directory_of(std::string_view path) {
    std::string directory(path);
    if (directory.empty() || directory.back() != '/') {
        directory += '/';
    }
    return directory;
}

void make_directory(std::string_view path) {
    const Access access;
    store_directory(directory_of(path));
}

void remove(std::string_view path) {
    const Access access;
    if (!erase_item(std::string(path))) {
        erase_directory(directory_of(path));
    }
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
        result.push_back(conn->path);
    }
    return result;
}

unsigned open_lists() {
    const Access access;
    return static_cast<unsigned>(db().lists.size());
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
    return found == sysdb::db().connections.end() ? "closed" : found->second->path;
}

void reset_sysdb() {
    const Access access;
    auto &d = sysdb::db();
    d.items.clear();
    d.directories.clear();
    d.connections.clear();
    d.lists.clear();
    d.watches.clear();
    d.list_on_failure = false;
    d.present = true;
}

}  // namespace fake::detail

using namespace fake::sysdb;

int fake_presence(const char *path, int mode) {
    const fake::detail::Call call("access", path, mode);
    if (call.scripted()) {
        return static_cast<int>(*call.scripted());
    }
    return db().present ? 0 : ENOENT;
}
