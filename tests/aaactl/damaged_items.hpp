// SPDX-License-Identifier: Apache-2.0
//
// Items that no program can store through the platform, as a defect or a broken
// disk may leave them: written into the database's file past its provider.

#pragma once

#include <gtest/gtest.h>
#include <lmdb.h>

#include <cstdint>
#include <string>

#include "platform/sysdb.h"
#include "temp_dir.hpp"

namespace aaactl_test {

// The file must be there: the provider makes it when the first item is stored.
inline void damage(const TempDir &dir, const std::string &path, const std::string &row) {
    const std::string file = dir.path(path.starts_with("/cfg/") ? "cfg/cfg.mdb" : "run/oper.mdb");
    MDB_env *env = nullptr;
    MDB_txn *txn = nullptr;
    MDB_dbi items = 0;
    ASSERT_EQ(0, mdb_env_create(&env));
    ASSERT_EQ(0, mdb_env_set_maxdbs(env, 8));
    ASSERT_EQ(0, mdb_env_open(env, file.c_str(), MDB_NOSUBDIR, 0660)) << file;
    ASSERT_EQ(0, mdb_txn_begin(env, nullptr, 0, &txn));
    ASSERT_EQ(0, mdb_dbi_open(txn, "items", 0, &items));
    MDB_val key = {path.size(), const_cast<char *>(path.data())};
    MDB_val value = {row.size(), const_cast<char *>(row.data())};
    ASSERT_EQ(0, mdb_put(txn, items, &key, &value, 0));
    ASSERT_EQ(0, mdb_txn_commit(txn));
    mdb_env_close(env);
}

// An item of this type whose value is the bytes.
inline void damage(const TempDir &dir, const std::string &path, uint32_t type, const std::string &bytes) {
    damage(dir, path, std::string(reinterpret_cast<const char *>(&type), sizeof type) + bytes);
}

}  // namespace aaactl_test
