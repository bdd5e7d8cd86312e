// SPDX-License-Identifier: Apache-2.0
//
// Reading, storing and deleting items, one transaction each.

#include "items.hpp"

#include <cstring>

#include "change_log.hpp"
#include "host.hpp"

namespace sysdb_lmdb {
namespace {

Result put_item(const Environment &environment, MDB_txn *txn, std::string_view key, std::uint32_t datatype,
                std::string_view value) {
    MDB_val name = value_of(key);
    MDB_val room = {sizeof datatype + value.size(), nullptr};
    const auto rc = Result::of_lmdb(mdb_put(txn, environment.items(), &name, &room, MDB_RESERVE));
    if (rc.is_ok()) {
        auto *bytes = static_cast<char *>(room.mv_data);
        std::memcpy(bytes, &datatype, sizeof datatype);
        value.copy(bytes + sizeof datatype,
                   value.size());  // memcpy would not take the null of an empty value
    }
    return rc;
}

// Everything whose key begins with the directory's.
Result delete_below(const Environment &environment, MDB_txn *txn, std::string_view directory,
                    ChangedKeys &changed) {
    Cursor cursor;
    Result rc = cursor.open(txn, environment.items());
    while (rc.is_ok()) {
        MDB_val key = value_of(directory);
        MDB_val value;
        rc = cursor.get(key, value, MDB_SET_RANGE);
        if (!rc.is_ok() || !view_of(key).starts_with(directory)) {
            break;
        }
        changed.emplace_back(view_of(key));
        rc = cursor.erase();
    }
    return rc.ok_if_not_found();
}

}  // namespace

bool parse_item(const MDB_val &stored, Item &item) {
    if (stored.mv_size < sizeof item.datatype) {
        return false;
    }
    std::memcpy(&item.datatype, stored.mv_data, sizeof item.datatype);
    item.value = view_of(stored).substr(sizeof item.datatype);
    return true;
}

bool same_item(const MDB_val &stored, std::uint32_t datatype, std::string_view value) {
    Item item;
    return parse_item(stored, item) && item.datatype == datatype && item.value == value;
}

Result store_in(const Environment &environment, MDB_txn *txn, std::string_view key, std::uint32_t datatype,
                std::string_view value) {
    MDB_val name = value_of(key);
    MDB_val stored;
    Result rc = Result::of_lmdb(mdb_get(txn, environment.items(), &name, &stored));
    if (!rc.ok_if_not_found().is_ok()) {
        return rc;
    }
    const bool existed = rc.is_ok();
    if (existed && same_item(stored, datatype, value)) {
        return Result::unchanged();
    }
    rc = put_item(environment, txn, key, datatype, value);
    const std::uint32_t operation = existed ? SYSDB_EVENT_SET : SYSDB_EVENT_CREATE;
    return rc.is_ok() ? append_change(environment, txn, operation, key) : rc;
}

Result delete_in(const Environment &environment, MDB_txn *txn, std::string_view key) {
    MDB_val name = value_of(key);
    const auto rc = Result::of_lmdb(mdb_del(txn, environment.items(), &name, nullptr));
    return rc.is_ok() ? append_change(environment, txn, SYSDB_EVENT_DELETE, key) : rc;
}

cerrno find_item(ReadTxn &txn, std::string_view key, Item &item) {
    MDB_val name = value_of(key);
    MDB_val stored;
    const auto rc = Result::of_lmdb(mdb_get(txn.get(), txn.environment().items(), &name, &stored));
    if (!rc.is_ok()) {
        return txn.report(rc);
    }
    return parse_item(stored, item) ? 0 : SYSDB_ERR_BAD_VALUE;
}

cerrno store_item(const Key &key, std::uint32_t datatype, std::string_view value, ChangedKeys &changed) {
    if (value.size() > kMaxValue) {
        return SYSDB_ERR_VALUE_TOO_LARGE;
    }
    return Database::instance().with(key.tree(), [&](Environment &environment) {
        changed.clear();
        return environment.write(
            Environment::Growth::kGrows,
            [&](MDB_txn *txn) {
                const Result rc = store_in(environment, txn, key.view(), datatype, value);
                changed.assign(rc.is_ok() ? 1 : 0, std::string(key.view()));
                return rc;
            },
            value.size());
    });
}

cerrno delete_item(const Key &key, ChangedKeys &changed) {
    return Database::instance().with(key.tree(), [&](Environment &environment) {
        return environment.write(Environment::Growth::kShrinks, [&](MDB_txn *txn) {
            const Result rc = delete_in(environment, txn, key.view());
            changed.assign(rc.is_ok() ? 1 : 0, std::string(key.view()));
            return rc;
        });
    });
}

cerrno delete_directory(const Key &directory, ChangedKeys &changed) {
    return Database::instance().with(directory.tree(), [&](Environment &environment) {
        return environment.write(Environment::Growth::kShrinks, [&](MDB_txn *txn) {
            changed.clear();
            Result rc = delete_below(environment, txn, directory.view(), changed);
            if (rc.is_ok() && changed.empty()) {
                return Result::of_lmdb(MDB_NOTFOUND);
            }
            for (std::size_t i = 0; i < changed.size() && rc.is_ok(); ++i) {
                rc = append_change(environment, txn, SYSDB_EVENT_DELETE, changed[i]);
            }
            return rc;
        });
    });
}

}  // namespace sysdb_lmdb
