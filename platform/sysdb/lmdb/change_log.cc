// SPDX-License-Identifier: Apache-2.0

#include "change_log.hpp"

#include <cstring>

namespace sysdb_lmdb {
namespace {

int newest(MDB_txn *txn, MDB_dbi table, std::uint64_t &revision) {
    revision = 0;
    Cursor cursor;
    int rc = cursor.open(txn, table);
    MDB_val key;
    MDB_val value;
    if (rc == 0) {
        rc = cursor.get(key, value, MDB_LAST);
    }
    if (rc == 0 && key.mv_size == sizeof revision) {
        std::memcpy(&revision, key.mv_data, sizeof revision);
    }
    return rc == MDB_NOTFOUND ? 0 : rc;
}

// Two at most: enough to shrink a log that was written with a larger map.
int drop_oldest(MDB_txn *txn, MDB_dbi table, std::uint64_t newest_dropped) {
    Cursor cursor;
    int rc = cursor.open(txn, table);
    for (int i = 0; i < 2 && rc == 0; ++i) {
        MDB_val key;
        MDB_val value;
        rc = cursor.get(key, value, MDB_FIRST);
        std::uint64_t revision = 0;
        if (rc == 0 && key.mv_size == sizeof revision) {
            std::memcpy(&revision, key.mv_data, sizeof revision);
        }
        if (rc != 0 || revision > newest_dropped) {
            break;
        }
        rc = mdb_cursor_del(cursor.handle(), 0);
    }
    return rc == MDB_NOTFOUND ? 0 : rc;
}

}  // namespace

int append_change(const Environment &environment, MDB_txn *txn, std::uint32_t operation,
                  std::string_view key) {
    const MDB_dbi table = environment.log_table();
    std::uint64_t revision = 0;
    int rc = newest(txn, table, revision);
    if (rc != 0) {
        return rc;
    }
    if (++revision == 0) {
        return MDB_CORRUPTED;  // no change was ever given the last number
    }
    MDB_val number = {sizeof revision, &revision};
    MDB_val record = {sizeof operation + key.size(), nullptr};
    rc = mdb_put(txn, table, &number, &record, MDB_APPEND | MDB_RESERVE);
    if (rc != 0) {
        return rc;
    }
    auto *bytes = static_cast<char *>(record.mv_data);
    std::memcpy(bytes, &operation, sizeof operation);
    std::memcpy(bytes + sizeof operation, key.data(), key.size());
    const std::uint64_t capacity = environment.log_capacity();
    return revision > capacity ? drop_oldest(txn, table, revision - capacity) : 0;
}

cerrno last_revision(const ReadTxn &txn, std::uint64_t &revision) {
    return txn.environment().report(newest(txn.get(), txn.environment().log_table(), revision));
}

bool parse_change(const MDB_val &key, const MDB_val &value, Change &change) {
    if (key.mv_size != sizeof change.revision || value.mv_size < sizeof change.operation) {
        return false;
    }
    std::memcpy(&change.revision, key.mv_data, sizeof change.revision);
    std::memcpy(&change.operation, value.mv_data, sizeof change.operation);
    change.key = view_of(value).substr(sizeof change.operation);
    return true;
}

}  // namespace sysdb_lmdb
