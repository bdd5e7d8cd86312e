// SPDX-License-Identifier: Apache-2.0
//
// Several changes in one transaction.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "items.hpp"
#include "platform/sysdb_changes.h"

namespace sysdb_lmdb {

// A change whose path has been converted. The value is the caller's.
struct PlannedChange {
    std::uint32_t operation;
    std::uint32_t datatype;
    std::string key;  // a Key would use its maximum length for each
    std::string_view value;
};

// Checks paths and sizes before the transaction; on failure `failed` is the refused change.
cerrno plan_changes(const Key &prefix, const sysdb_change_t *changes, std::uint32_t count,
                    std::vector<PlannedChange> &planned, std::uint32_t &failed);

// All or none. `failed` is the number of changes when the failure concerns none of them.
cerrno make_changes(Tree tree, const std::vector<PlannedChange> &planned, ChangedKeys &changed,
                    std::uint32_t &failed);

}  // namespace sysdb_lmdb
