// SPDX-License-Identifier: Apache-2.0
//
// Items: a key, and as its value the data type (four bytes, host order) followed
// by the item's bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "database.hpp"

namespace sysdb_lmdb {

inline constexpr std::uint32_t kMaxValue = 1024 * 1024;

struct Item {
    std::uint32_t datatype;
    std::string_view value;  // valid for as long as the transaction
};

// SYSDB_ERR_NOT_FOUND, SYSDB_ERR_BAD_VALUE: it has no type, which is not logged.
cerrno find_item(ReadTxn &txn, std::string_view key, Item &item);

// Splits a stored value; false when it has no type.
bool parse_item(const MDB_val &stored, Item &item);

// Steps of a write transaction, with their records in the change log:
// unchanged when the same is stored already, not found when there is nothing
// to delete.
Result store_in(const Environment &environment, MDB_txn *txn, std::string_view key, std::uint32_t datatype,
                std::string_view value);
Result delete_in(const Environment &environment, MDB_txn *txn, std::string_view key);

// Whether a stored item is of this type and value.
bool same_item(const MDB_val &stored, std::uint32_t datatype, std::string_view value);

// Keys that a write changed, for its watchers.
using ChangedKeys = std::vector<std::string>;

cerrno store_item(const Key &key, std::uint32_t datatype, std::string_view value, ChangedKeys &changed);
cerrno delete_item(const Key &key, ChangedKeys &changed);
// Everything below a directory, and its own marker.
cerrno delete_directory(const Key &directory, ChangedKeys &changed);

}  // namespace sysdb_lmdb
