// SPDX-License-Identifier: Apache-2.0
//
// Results of the database's steps: the kind of each int, and the interface's code
// for it.

#include "platform/sysdb/lmdb/result.hpp"

#include <cerrno>

#include <gtest/gtest.h>

#include "platform/sysdb_changes.h"

using sysdb_lmdb::Result;

TEST(LmdbResult, ZeroIsSuccessFromWhateverSource) {
    for (const Result result : {Result::ok(), Result::of_lmdb(0), Result::of_errno(0)}) {
        EXPECT_TRUE(result.is_ok());
        EXPECT_EQ(result.code(), 0u);
        EXPECT_FALSE(result.is_failure_of_storage());
    }
}

// LMDB passes on the errno of a system call, which is positive; its own codes are negative.
TEST(LmdbResult, ErrnoOfAnLmdbFunctionIsTold) {
    EXPECT_TRUE(Result::of_lmdb(EACCES).is_errno(EACCES));
    EXPECT_FALSE(Result::of_lmdb(EACCES).is_lmdb(EACCES));
    EXPECT_TRUE(Result::of_lmdb(MDB_MAP_FULL).is_lmdb(MDB_MAP_FULL));
    EXPECT_FALSE(Result::of_lmdb(MDB_MAP_FULL).is_errno(MDB_MAP_FULL));
    EXPECT_EQ(Result::of_lmdb(ENOSPC).code(), Result::of_errno(ENOSPC).code());
}

TEST(LmdbResult, LmdbCodesBecomeCodesOfTheInterface) {
    const struct {
        int rc;
        cerrno code;
        bool damage;
        bool storage;
    } rows[] = {
        {MDB_NOTFOUND, SYSDB_ERR_NOT_FOUND, false, false},
        {MDB_BAD_VALSIZE, SYSDB_ERR_PATH_TOO_LONG, false, false},
        {MDB_MAP_FULL, SYSDB_ERR_FULL, false, true},
        {MDB_TXN_FULL, SYSDB_ERR_FULL, false, true},
        {MDB_READERS_FULL, SYSDB_ERR_BUSY, false, true},
        {MDB_MAP_RESIZED, SYSDB_ERR_BUSY, false, true},
        {MDB_PAGE_NOTFOUND, SYSDB_ERR_CORRUPT, true, true},
        {MDB_CORRUPTED, SYSDB_ERR_CORRUPT, true, true},
        {MDB_PANIC, SYSDB_ERR_CORRUPT, true, true},
        {MDB_VERSION_MISMATCH, SYSDB_ERR_CORRUPT, true, true},
        {MDB_INVALID, SYSDB_ERR_CORRUPT, true, true},
        {MDB_INCOMPATIBLE, SYSDB_ERR_CORRUPT, true, true},
        {MDB_BAD_TXN, SYSDB_ERR_CORRUPT, true, true},
        {MDB_BAD_DBI, SYSDB_ERR_CORRUPT, true, true},
        {MDB_KEYEXIST, SYSDB_ERR_STORAGE, false, true},
        {MDB_DBS_FULL, SYSDB_ERR_STORAGE, false, true},
        {MDB_PAGE_FULL, SYSDB_ERR_STORAGE, false, true},
    };
    for (const auto &row : rows) {
        const Result result = Result::of_lmdb(row.rc);
        SCOPED_TRACE(result.text());
        EXPECT_EQ(result.code(), row.code);
        EXPECT_EQ(result.is_damage(), row.damage);
        EXPECT_EQ(result.is_failure_of_storage(), row.storage);
        EXPECT_FALSE(result.is_ok());
        EXPECT_STREQ(result.text(), mdb_strerror(row.rc));
    }
}

TEST(LmdbResult, ErrnoBecomesCodesOfTheInterface) {
    const struct {
        int error;
        cerrno code;
    } rows[] = {
        {EACCES, SYSDB_ERR_ACCESS},   {EPERM, SYSDB_ERR_ACCESS}, {EROFS, SYSDB_ERR_READ_ONLY},
        {ENOMEM, SYSDB_ERR_NOMEM},    {ENOSPC, SYSDB_ERR_FULL},  {EDQUOT, SYSDB_ERR_FULL},
        {ENOENT, SYSDB_ERR_STORAGE},  {EIO, SYSDB_ERR_STORAGE},  {EMFILE, SYSDB_ERR_STORAGE},
        {ENOTDIR, SYSDB_ERR_STORAGE}, {EFBIG, SYSDB_ERR_FULL},   {ETIMEDOUT, SYSDB_ERR_BUSY},
        {EAGAIN, SYSDB_ERR_BUSY},
    };
    for (const auto &row : rows) {
        const Result result = Result::of_errno(row.error);
        SCOPED_TRACE(result.text());
        EXPECT_EQ(result.code(), row.code);
        EXPECT_TRUE(result.is_failure_of_storage());
        EXPECT_FALSE(result.is_damage());
        EXPECT_FALSE(result.is_ok());
    }
}

TEST(LmdbResult, NotFoundMayBeSuccess) {
    EXPECT_TRUE(Result::of_lmdb(MDB_NOTFOUND).is_not_found());
    EXPECT_TRUE(Result::of_lmdb(MDB_NOTFOUND).ok_if_not_found().is_ok());
    EXPECT_TRUE(Result::ok().ok_if_not_found().is_ok());
    EXPECT_EQ(Result::of_lmdb(MDB_MAP_FULL).ok_if_not_found().code(), SYSDB_ERR_FULL);
    EXPECT_FALSE(Result::of_errno(ENOENT).ok_if_not_found().is_ok());
}

// Aborts the transaction, so it is not ok; the call still succeeds.
TEST(LmdbResult, UnchangedAbortsAndSucceeds) {
    EXPECT_FALSE(Result::unchanged().is_ok());
    EXPECT_TRUE(Result::unchanged().ok_if_unchanged().is_ok());
    EXPECT_EQ(Result::unchanged().code(), 0u);
    EXPECT_FALSE(Result::unchanged().is_failure_of_storage());
    EXPECT_FALSE(Result::conflict().ok_if_unchanged().is_ok());
}

TEST(LmdbResult, ConflictIsTheCallersAffair) {
    EXPECT_FALSE(Result::conflict().is_ok());
    EXPECT_EQ(Result::conflict().code(), SYSDB_ERR_CONFLICT);
    EXPECT_FALSE(Result::conflict().is_failure_of_storage());
    EXPECT_FALSE(Result::conflict().is_damage());
}
