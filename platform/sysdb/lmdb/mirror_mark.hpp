// SPDX-License-Identifier: Apache-2.0
//
// Configuration that is the mirror of a cluster's: an agent keeps it equal to what the cluster has.
//
// The mark in the configuration's file says so. While it is there, only the agent writes the
// file: a process that still uses the embedded provider would make changes that no other
// node gets, and that the agent takes back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "database.hpp"
#include "items.hpp"

namespace sysdb_lmdb {

struct MirrorMark {
    std::uint64_t cluster = 0;   // its number
    std::uint64_t revision = 0;  // of the cluster; the file has all changes up to it
    std::string prefix;          // of the cluster's keys

    // That of an import which has begun: the configuration is this node's own, and nothing may change or
    // replace it.
    static MirrorMark of_import(std::string prefix) { return {0, 1, std::move(prefix)}; }
    bool is_of_import() const { return cluster == 0 && revision == 1; }

    friend bool operator==(const MirrorMark &, const MirrorMark &) = default;
};

struct MirroredItem {
    std::string key;
    bool deleted = false;
    std::uint32_t datatype = 0;
    std::string value;
};

// Lets this process write a mirror. Once, before others use the database in it.
void become_the_mirrors_writer();

// Whether the file of the transaction is a mirror that this process may not write.
bool is_mirror_of_others(MDB_txn *txn, MDB_dbi meta);

// Empty when the configuration is not a mirror.
cerrno read_mirror_mark(std::optional<MirrorMark> &mark);
// Stores the items and the mark as one. Items that are there already, and missing ones to delete,
// are no changes. SYSDB_ERR_CONFLICT: there is another mark than the one before, if that is given, and
// nothing was stored.
cerrno store_mirrored(const std::vector<MirroredItem> &items, const MirrorMark &mark, ChangedKeys &changed,
                      const std::optional<MirrorMark> *before = nullptr);
// The configuration stays, and is this node's own.
cerrno remove_mirror_mark();

// Of this database, random, kept in it. Empty: it has none yet.
cerrno read_identity(std::string &identity);
// Makes one where there is none.
cerrno have_identity(std::string &identity);

// Calls visit(key, item) for all of the configuration, in the order of the keys.
template <typename Visit>
cerrno for_each_configured(Visit visit) {
    return Database::instance().read(Tree::kCfg, [&visit](ReadTxn &txn) {
        Cursor cursor;
        Result rc = cursor.open(txn.get(), txn.environment().items());
        MDB_val key;
        MDB_val value;
        for (rc = rc.is_ok() ? cursor.get(key, value, MDB_FIRST) : rc; rc.is_ok();
             rc = cursor.get(key, value, MDB_NEXT)) {
            Item item{};
            if (!parse_item(value, item)) {
                item = {SYSDB_TYPE_ANY, {}};  // no item is of this type
            }
            visit(view_of(key), item);
        }
        return txn.report(rc.ok_if_not_found());
    });
}

}  // namespace sysdb_lmdb
