// SPDX-License-Identifier: Apache-2.0

#include "items.hpp"

#include <cstring>

#include "change_log.hpp"
#include "host.hpp"

namespace sysdb_lmdb {
namespace {

int put_item(const Environment &environment, MDB_txn *txn, std::string_view key, std::uint32_t datatype,
             std::string_view value) {
    MDB_val name = value_of(key);
    MDB_val room = {sizeof datatype + value.size(), nullptr};
    const int rc = mdb_put(txn, environment.items(), &name, &room, MDB_RESERVE);
    if (rc == 0) {
        auto *bytes = static_cast<char *>(room.mv_data);
        std::memcpy(bytes, &datatype, sizeof datatype);
        value.copy(bytes + sizeof datatype,
                   value.size());  // memcpy would not take the null of an empty value
    }
    return rc;
}

// Everything whose key begins with the directory's.
int delete_below(const Environment &environment, MDB_txn *txn, std::string_view directory,
                 ChangedKeys &changed) {
    Cursor cursor;
    int rc = cursor.open(txn, environment.items());
    if (rc != 0) {
        return rc;
    }
    for (;;) {
        MDB_val key = value_of(directory);
        MDB_val value;
        rc = cursor.get(key, value, MDB_SET_RANGE);
        if (rc != 0 || !view_of(key).starts_with(directory)) {
            break;
        }
        changed.emplace_back(view_of(key));
        rc = mdb_cursor_del(cursor.handle(), 0);
        if (rc != 0) {
            break;
        }
    }
    return rc == MDB_NOTFOUND ? 0 : rc;
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

int store_in(const Environment &environment, MDB_txn *txn, std::string_view key, std::uint32_t datatype,
             std::string_view value) {
    MDB_val name = value_of(key);
    MDB_val stored;
    int rc = mdb_get(txn, environment.items(), &name, &stored);
    if (rc != 0 && rc != MDB_NOTFOUND) {
        return rc;
    }
    const bool existed = rc == 0;
    if (existed && same_item(stored, datatype, value)) {
        return kNothingToDo;
    }
    rc = put_item(environment, txn, key, datatype, value);
    const std::uint32_t operation = existed ? SYSDB_EVENT_SET : SYSDB_EVENT_CREATE;
    return rc == 0 ? append_change(environment, txn, operation, key) : rc;
}

int delete_in(const Environment &environment, MDB_txn *txn, std::string_view key) {
    MDB_val name = value_of(key);
    const int rc = mdb_del(txn, environment.items(), &name, nullptr);
    return rc == 0 ? append_change(environment, txn, SYSDB_EVENT_DELETE, key) : rc;
}

cerrno find_item(const ReadTxn &txn, std::string_view key, Item &item) {
    MDB_val name = value_of(key);
    MDB_val stored;
    const int rc = mdb_get(txn.get(), txn.environment().items(), &name, &stored);
    if (rc != 0) {
        return txn.environment().report(rc);
    }
    if (parse_item(stored, item)) {
        return 0;
    }
    log(kLogError, "database %s: item %s has no type; set it again or delete it",
        txn.environment().file().c_str(), decode(key).c_str());
    return SYSDB_ERR_BAD_VALUE;
}

cerrno store_item(const Key &key, std::uint32_t datatype, std::string_view value, ChangedKeys &changed) {
    if (value.size() > kMaxValue) {
        return SYSDB_ERR_VALUE_TOO_LARGE;
    }
    return Database::instance().with(key.tree(), [&](Environment &environment) {
        changed.clear();
        return environment.write(Environment::Growth::kGrows, [&](MDB_txn *txn) {
            const int rc = store_in(environment, txn, key.view(), datatype, value);
            changed.assign(rc == 0 ? 1 : 0, std::string(key.view()));
            return rc;
        });
    });
}

cerrno delete_item(const Key &key, ChangedKeys &changed) {
    return Database::instance().with(key.tree(), [&](Environment &environment) {
        return environment.write(Environment::Growth::kShrinks, [&](MDB_txn *txn) {
            const int rc = delete_in(environment, txn, key.view());
            changed.assign(rc == 0 ? 1 : 0, std::string(key.view()));
            return rc;
        });
    });
}

cerrno delete_directory(const Key &directory, ChangedKeys &changed) {
    return Database::instance().with(directory.tree(), [&](Environment &environment) {
        return environment.write(Environment::Growth::kShrinks, [&](MDB_txn *txn) {
            changed.clear();
            int rc = delete_below(environment, txn, directory.view(), changed);
            if (rc == 0 && changed.empty()) {
                return MDB_NOTFOUND;
            }
            for (std::size_t i = 0; i < changed.size() && rc == 0; ++i) {
                rc = append_change(environment, txn, SYSDB_EVENT_DELETE, changed[i]);
            }
            return rc;
        });
    });
}

}  // namespace sysdb_lmdb
