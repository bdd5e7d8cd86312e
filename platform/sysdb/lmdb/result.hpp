// SPDX-License-Identifier: Apache-2.0
//
// How a step on the database or on its files ended. LMDB's functions return
// its own codes and errno values through one int; a transaction's body knows
// two more outcomes. A Result keeps them apart, and code() is the one place
// where they become codes of platform/sysdb.h.
#pragma once

#include <lmdb.h>

#include <cerrno>

#include "platform/sysdb.h"

namespace sysdb_lmdb {

class [[nodiscard]] Result {
  public:
    static constexpr Result ok() { return {Kind::kOk, 0}; }
    // From the int of an LMDB function: 0, a code of LMDB's, or an errno value.
    static constexpr Result of_lmdb(int rc) { return {rc < 0 ? Kind::kLmdb : errno_kind(rc), rc}; }
    // From a system call's errno; 0 is success.
    static constexpr Result of_errno(int error) { return {errno_kind(error), error}; }
    // The transaction would change nothing: it is aborted, and the call succeeds.
    static constexpr Result unchanged() { return {Kind::kUnchanged, 0}; }
    // An item is not as the caller expects it: the transaction is aborted.
    static constexpr Result conflict() { return {Kind::kConflict, 0}; }
    // The file is the mirror of a cluster's configuration, which only the agent writes.
    static constexpr Result mirror() { return {Kind::kMirror, 0}; }

    constexpr bool is_ok() const { return kind_ == Kind::kOk; }
    constexpr bool is_lmdb(int rc) const { return kind_ == Kind::kLmdb && value_ == rc; }
    constexpr bool is_errno(int error) const { return kind_ == Kind::kErrno && value_ == error; }
    constexpr bool is_not_found() const { return is_lmdb(MDB_NOTFOUND); }
    // The file cannot be trusted any more, or is not one of this format.
    bool is_damage() const;
    // The file system, a quota or a limit of the process keeps a file from growing.
    constexpr bool is_no_room() const { return is_errno(ENOSPC) || is_errno(EDQUOT) || is_errno(EFBIG); }
    constexpr bool is_mirror() const { return kind_ == Kind::kMirror; }
    // Another process has kept a lock for too long.
    constexpr bool is_timeout() const { return is_errno(ETIMEDOUT); }
    // The errno value, for a failure of the system.
    constexpr int error() const { return kind_ == Kind::kErrno ? value_ : 0; }
    // The administrator has to do something: not when an item is missing, a
    // path is too long, or an expectation is not met.
    bool is_failure_of_storage() const;

    // For a walk: its end is a success.
    constexpr Result ok_if_not_found() const { return is_not_found() ? ok() : *this; }
    // For a transaction that succeeds when there is nothing to change.
    constexpr Result ok_if_unchanged() const { return kind_ == Kind::kUnchanged ? ok() : *this; }

    // Text of a failure of LMDB or of the system, for a log line.
    const char *text() const;
    // The same as a code of platform/sysdb.h; 0 for ok and unchanged.
    cerrno code() const;

  private:
    enum class Kind { kOk, kLmdb, kErrno, kUnchanged, kConflict, kMirror };

    constexpr Result(Kind kind, int value) : kind_(kind), value_(value) {}
    static constexpr Kind errno_kind(int error) { return error == 0 ? Kind::kOk : Kind::kErrno; }
    cerrno code_of_lmdb() const;
    cerrno code_of_errno() const;

    Kind kind_;
    int value_;
};

}  // namespace sysdb_lmdb
