// SPDX-License-Identifier: Apache-2.0
//
// The fake system database: items and directories, changed by callers or by the test.

#include "testkit/sysdb/fake_sysdb.hpp"

namespace fake::sysdb {

bool value_fits(uint32_t datatype, const void *value, uint32_t length) {
    const auto *const bytes = static_cast<const uint8_t *>(value);
    if (bytes == nullptr && length != 0) {
        return false;
    }
    switch (datatype) {
        case SYSDB_TYPE_U32:
            return length == sizeof(uint32_t);
        case SYSDB_TYPE_STRING:
            return length > 0 && bytes[length - 1] == 0;
        case SYSDB_TYPE_TUPLE:
            return is_tuple(bytes, length);
        case SYSDB_TYPE_DIRECTORY:
            return length == 0;
        default:
            return true;
    }
}

bool same(const Item &a, const Item &b) {
    return a.type == b.type && a.value == b.value && a.null_value == b.null_value;
}

void store_item(const std::string &path, Item item) {
    const auto found = db().items.find(path);
    const bool existed = found != db().items.end();
    if (!existed || !same(found->second, item)) {
        db().items.insert_or_assign(path, std::move(item));
        note_change(path, existed ? SYSDB_EVENT_SET : SYSDB_EVENT_CREATE);
    }
}

void store_directory(const std::string &directory) {
    if (db().directories.insert(directory).second) {
        note_change(directory, SYSDB_EVENT_CREATE);
    }
}

bool erase_item(const std::string &path) {
    const bool existed = db().items.erase(path) != 0;
    if (existed) {
        note_change(path, SYSDB_EVENT_DELETE);
    }
    return existed;
}

bool erase_directory(const std::string &directory) {
    const bool existed = db().directories.erase(directory) != 0;
    if (existed) {
        note_change(directory, SYSDB_EVENT_DELETE);
    }
    return existed;
}

bool directory_exists(const std::string &directory) {
    return !below(db().items, directory).empty() || !below(db().directories, directory).empty();
}

std::map<std::string, uint32_t, PathOrder> entries_below(const std::string &directory) {
    std::map<std::string, uint32_t, PathOrder> entries;
    const auto add = [&](const std::string &path, uint32_t type) {
        const std::string rest = path.substr(directory.size());
        const std::size_t slash = rest.find('/');
        if (slash != std::string::npos) {
            entries.emplace(rest.substr(0, slash + 1), SYSDB_TYPE_DIRECTORY);
        } else if (!rest.empty()) {
            entries.emplace(rest, type);
        }
    };
    for (const auto &[path, item] : below(db().items, directory)) {
        add(path, item.type);
    }
    for (const std::string &path : below(db().directories, directory)) {
        add(path, SYSDB_TYPE_DIRECTORY);
    }
    return entries;
}

}  // namespace fake::sysdb
