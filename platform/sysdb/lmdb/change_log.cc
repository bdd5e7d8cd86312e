// SPDX-License-Identifier: Apache-2.0
//
// Appending to the change log, dropping its oldest records, reading a record.

#include "change_log.hpp"

#include <cstring>

namespace sysdb_lmdb {
namespace {

Result newest(MDB_txn *txn, MDB_dbi table, std::uint64_t &revision) {
    revision = 0;
    Cursor cursor;
    Result rc = cursor.open(txn, table);
    MDB_val key;
    MDB_val value;
    if (rc.is_ok()) {
        rc = cursor.get(key, value, MDB_LAST);
    }
    if (rc.is_ok() && key.mv_size == sizeof revision) {
        std::memcpy(&revision, key.mv_data, sizeof revision);
    }
    return rc.ok_if_not_found();
}

// At most two: that shrinks a log that was written with a larger map.
Result drop_oldest(MDB_txn *txn, MDB_dbi table, std::uint64_t newest_dropped) {
    Cursor cursor;
    Result rc = cursor.open(txn, table);
    for (int i = 0; i < 2 && rc.is_ok(); ++i) {
        MDB_val key;
        MDB_val value;
        rc = cursor.get(key, value, MDB_FIRST);
        std::uint64_t revision = 0;
        if (rc.is_ok() && key.mv_size == sizeof revision) {
            std::memcpy(&revision, key.mv_data, sizeof revision);
        }
        if (!rc.is_ok() || revision > newest_dropped) {
            break;
        }
        rc = cursor.erase();
    }
    return rc.ok_if_not_found();
}

}  // namespace

Result append_change(const Environment &environment, MDB_txn *txn, std::uint32_t operation,
                     std::string_view key) {
    const MDB_dbi table = environment.log_table();
    std::uint64_t revision = 0;
    Result rc = newest(txn, table, revision);
    if (!rc.is_ok()) {
        return rc;
    }
    if (++revision == 0) {
        return Result::of_lmdb(MDB_CORRUPTED);  // the last number is never used
    }
    MDB_val number = {sizeof revision, &revision};
    MDB_val record = {sizeof operation + key.size(), nullptr};
    rc = Result::of_lmdb(mdb_put(txn, table, &number, &record, MDB_APPEND | MDB_RESERVE));
    if (!rc.is_ok()) {
        return rc;
    }
    auto *bytes = static_cast<char *>(record.mv_data);
    std::memcpy(bytes, &operation, sizeof operation);
    std::memcpy(bytes + sizeof operation, key.data(), key.size());
    const std::uint64_t capacity = environment.log_capacity();
    return revision > capacity ? drop_oldest(txn, table, revision - capacity) : Result::ok();
}

cerrno last_revision(ReadTxn &txn, std::uint64_t &revision) {
    return txn.report(newest(txn.get(), txn.environment().log_table(), revision));
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
