// SPDX-License-Identifier: Apache-2.0
//
// Items that no program can store through the platform, as a defect or a broken
// disk may leave them: written into the database's file without its provider.

#pragma once

#include <cstdint>
#include <string>

#include "platform/sysdb.h"
#include "support/database_table.hpp"
#include "support/temp_dir.hpp"

namespace aaactl_test {

// The file must exist: the provider creates it when the first item is stored.
inline void damage(const TempDir &dir, const std::string &path, const std::string &row) {
    const std::string file = dir.path(path.starts_with("/cfg/") ? "cfg/cfg.mdb" : "run/oper.mdb");
    aaatest::put_row(file, "items", path, row);
}

// An item of this type whose value is the bytes.
inline void damage(const TempDir &dir, const std::string &path, uint32_t type, const std::string &bytes) {
    damage(dir, path, std::string(reinterpret_cast<const char *>(&type), sizeof type) + bytes);
}

}  // namespace aaactl_test
