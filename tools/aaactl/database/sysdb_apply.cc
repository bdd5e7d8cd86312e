// SPDX-License-Identifier: Apache-2.0
//
// Passes the changes to the database as its records.

#include "database/sysdb_apply.hpp"

#include <algorithm>

#include "cli/stored.hpp"

namespace aaactl {

cerrno Changes::apply(Database &database, const std::string &directory, size_t &failed) const {
    std::vector<sysdb_change_t> records;
    records.reserve(changes_.size());
    std::transform(changes_.begin(), changes_.end(), std::back_inserter(records), [&](const Change &change) {
        return sysdb_change_t{change.operation, change.item.type, change.path.c_str() + directory.size(),
                              change.item.bytes.data(), static_cast<uint32_t>(change.item.bytes.size())};
    });
    auto refused = static_cast<uint32_t>(records.size());
    const cerrno rc = sysdb_apply(database.connection(directory), records.data(),
                                  static_cast<uint32_t>(records.size()), &refused);
    failed = refused;
    change_is_stored() = change_is_stored() || rc == 0;
    return rc;
}

}  // namespace aaactl
