// SPDX-License-Identifier: Apache-2.0
//
// The change log of a tree: key and operation of each change, numbered without
// gaps. The number of the newest change is the tree's revision. A record is
// written in the transaction of its change, so a view of the database holds
// exactly the changes up to its revision.
//
// The log keeps the newest Environment::log_capacity() records.
#pragma once

#include <cstdint>
#include <string_view>

#include "environment.hpp"

namespace sysdb_lmdb {

struct Change {
    std::uint64_t revision;
    std::uint32_t operation;  // SYSDB_EVENT_...
    std::string_view key;     // valid for as long as the transaction
};

Result append_change(const Environment &environment, MDB_txn *txn, std::uint32_t operation,
                     std::string_view key);

// Revision of the tree in this view; 0 before the first change.
cerrno last_revision(ReadTxn &txn, std::uint64_t &revision);

// Calls visit(change) for every change after a revision, oldest first. gap is
// set when the log has lost some of them.
template <typename Visit>
cerrno visit_changes(ReadTxn &txn, std::uint64_t after, bool &gap, Visit visit);

// Building blocks of visit_changes.
bool parse_change(const MDB_val &key, const MDB_val &value, Change &change);

template <typename Visit>
cerrno visit_changes(ReadTxn &txn, std::uint64_t after, bool &gap, Visit visit) {
    gap = false;
    Cursor cursor;
    Result rc = cursor.open(txn.get(), txn.environment().log_table());
    std::uint64_t expected = after + 1;
    MDB_val key = {sizeof expected, &expected};
    MDB_val value;
    if (rc.is_ok()) {
        rc = cursor.get(key, value, MDB_SET_RANGE);
    }
    for (bool first = true; rc.is_ok(); first = false, rc = cursor.get(key, value, MDB_NEXT)) {
        Change change;
        if (!parse_change(key, value, change)) {
            return txn.report(Result::of_lmdb(MDB_CORRUPTED));
        }
        if (first && change.revision != after + 1) {
            gap = true;
        }
        visit(change);
    }
    return txn.report(rc.ok_if_not_found());
}

}  // namespace sysdb_lmdb
