// SPDX-License-Identifier: Apache-2.0
//
// The mapping of results to codes and texts.

#include "result.hpp"

#include <cerrno>

#include "platform/sysdb_changes.h"

namespace sysdb_lmdb {

bool Result::is_damage() const {
    if (kind_ != Kind::kLmdb) {
        return false;
    }
    switch (value_) {
        case MDB_PAGE_NOTFOUND:
        case MDB_CORRUPTED:
        case MDB_PANIC:
        case MDB_VERSION_MISMATCH:
        case MDB_INVALID:
        case MDB_INCOMPATIBLE:
        case MDB_BAD_TXN:
        case MDB_BAD_DBI:
            return true;
        default:
            return false;
    }
}

bool Result::is_failure_of_storage() const {
    return kind_ == Kind::kErrno || kind_ == Kind::kMirror ||
           (kind_ == Kind::kLmdb && !is_not_found() && !is_lmdb(MDB_BAD_VALSIZE));
}

const char *Result::text() const {
    return mdb_strerror(value_);
}

cerrno Result::code_of_lmdb() const {
    switch (value_) {
        case MDB_NOTFOUND:
            return SYSDB_ERR_NOT_FOUND;
        case MDB_MAP_FULL:
        case MDB_TXN_FULL:
            return SYSDB_ERR_FULL;
        case MDB_READERS_FULL:
        case MDB_MAP_RESIZED:
            return SYSDB_ERR_BUSY;
        case MDB_BAD_VALSIZE:
            return SYSDB_ERR_PATH_TOO_LONG;
        default:
            return is_damage() ? SYSDB_ERR_CORRUPT : SYSDB_ERR_STORAGE;
    }
}

cerrno Result::code_of_errno() const {
    switch (value_) {
        case EACCES:
        case EPERM:
            return SYSDB_ERR_ACCESS;
        case EROFS:
            return SYSDB_ERR_READ_ONLY;
        case ENOMEM:
            return SYSDB_ERR_NOMEM;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return SYSDB_ERR_FULL;
        case ETIMEDOUT:
        case EAGAIN:
            return SYSDB_ERR_BUSY;
        default:
            return SYSDB_ERR_STORAGE;
    }
}

cerrno Result::code() const {
    switch (kind_) {
        case Kind::kOk:
        case Kind::kUnchanged:
            return 0;
        case Kind::kLmdb:
            return code_of_lmdb();
        case Kind::kErrno:
            return code_of_errno();
        case Kind::kConflict:
            return SYSDB_ERR_CONFLICT;
        case Kind::kMirror:
            return SYSDB_ERR_READ_ONLY;
    }
    return SYSDB_ERR_STORAGE;
}

}  // namespace sysdb_lmdb
