// SPDX-License-Identifier: Apache-2.0
//
// Tables of a database file, opened without the provider: to store contents that
// another process, a defect or a broken disk may leave there, and to read
// contents that the provider does not show. A process may not open a file in this way
// that its provider has open.
#pragma once

#include <gtest/gtest.h>
#include <lmdb.h>

#include <cstddef>
#include <string>

namespace aaatest {

// One transaction on one table, aborted unless it is committed.
class DatabaseTable {
  public:
    // The file's own table when it has no name. Flags are those of
    // mdb_env_open(); MDB_RDONLY makes the transaction one that only reads.
    DatabaseTable(const std::string &file, const char *name, unsigned flags = 0) {
        EXPECT_EQ(0, open(file, name, flags)) << file;
    }
    ~DatabaseTable() {
        mdb_txn_abort(txn_);
        mdb_env_close(env_);
    }
    DatabaseTable(const DatabaseTable &) = delete;
    DatabaseTable &operator=(const DatabaseTable &) = delete;

    void put(const std::string &key, const std::string &bytes) {
        ASSERT_TRUE(is_open_);
        MDB_val name = {key.size(), const_cast<char *>(key.data())};
        MDB_val value = {bytes.size(), const_cast<char *>(bytes.data())};
        ASSERT_EQ(0, mdb_put(txn_, table_, &name, &value, 0)) << key;
    }
    std::size_t rows() const {
        MDB_stat statistics{};
        EXPECT_TRUE(is_open_ && mdb_stat(txn_, table_, &statistics) == 0);
        return statistics.ms_entries;
    }
    void commit() {
        ASSERT_TRUE(is_open_);
        is_open_ = false;
        MDB_txn *const txn = txn_;
        txn_ = nullptr;
        ASSERT_EQ(0, mdb_txn_commit(txn));
    }

  private:
    static constexpr MDB_dbi kTablesOfAFile = 8;

    int open(const std::string &file, const char *name, unsigned flags) {
        int rc = mdb_env_create(&env_);
        rc = rc == 0 ? mdb_env_set_maxdbs(env_, kTablesOfAFile) : rc;
        rc = rc == 0 ? mdb_env_open(env_, file.c_str(), MDB_NOSUBDIR | flags, 0660) : rc;
        rc = rc == 0 ? mdb_txn_begin(env_, nullptr, flags & MDB_RDONLY, &txn_) : rc;
        rc = rc == 0 ? mdb_dbi_open(txn_, name, 0, &table_) : rc;
        is_open_ = rc == 0;
        return rc;
    }

    MDB_env *env_ = nullptr;
    MDB_txn *txn_ = nullptr;
    MDB_dbi table_ = 0;
    bool is_open_ = false;
};

inline void put_row(const std::string &file, const char *table, const std::string &key,
                    const std::string &bytes) {
    DatabaseTable opened(file, table);
    opened.put(key, bytes);
    opened.commit();
}

}  // namespace aaatest
