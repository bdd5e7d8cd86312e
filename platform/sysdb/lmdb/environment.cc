// SPDX-License-Identifier: Apache-2.0
//
// Transactions of one database file, its readers' places, and its failures.

#include "environment.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "head_check.hpp"
#include "host.hpp"
#include "mirror_mark.hpp"
#include "room.hpp"

namespace sysdb_lmdb {
namespace {

constexpr unsigned kCommitsBetweenChecks = 64;

}  // namespace

Environment::~Environment() {
    for (auto &place : idle_) {
        mdb_txn_abort(place.load(std::memory_order_acquire));
    }
    close_handle();
}

// A descriptor that LMDB has closed may at once be one that another thread opens, for the
// other tree too.
void Environment::close_handle() {
    if (env_ != nullptr) {
        files_.begin_closing();
        mdb_env_close(env_);
        env_ = nullptr;
    }
}

const char *Environment::outdated() const {
    FileIdentity now;
    if (!identify(file(), now) || now != files_.identity()) {
        return "has been replaced or removed";
    }
    if (read_only_ && faccessat(AT_FDCWD, file().c_str(), W_OK, AT_EACCESS) == 0) {
        return "may now be written";
    }
    return nullptr;
}

cerrno Environment::report(Result result) {
    if (result.is_damage()) {
        broken_.store(true, std::memory_order_relaxed);
        return report_damage(result.text());
    }
    if (result.is_lmdb(MDB_MAP_RESIZED)) {
        // Another process uses a larger map; opened again, this one does too.
        broken_.store(true, std::memory_order_relaxed);
    } else if (result.is_failure_of_storage()) {
        log_failure(result);
    }
    return result.code();
}

void Environment::log_failure(Result result) {
    if (result.is_lmdb(MDB_MAP_FULL)) {
        log(kLogError,
            "database %s is full; delete what is not needed, or set AAA_SYSDB_MAP_MIB to a larger size",
            file().c_str());
    } else if (result.is_lmdb(MDB_TXN_FULL)) {
        log(kLogError, "database %s: too many changes at once; make them in several parts", file().c_str());
    } else if (result.is_lmdb(MDB_READERS_FULL)) {
        log(kLogError,
            "database %s has no room for another reader; end some of the AAA processes; as root, fuser -v "
            "%s-lock lists them",
            file().c_str(), file().c_str());
    } else if (result.is_mirror()) {
        log(kLogError,
            "database %s is the mirror of a cluster's configuration, and this process would change the "
            "mirror "
            "alone; start the process again with the provider for clusters",
            file().c_str());
    } else if (result.is_no_room()) {
        report_no_room(files_.directory().get(), "database " + file(), result.error());
    } else if (result.is_errno(EAGAIN)) {  // LMDB keeps a record lock on the number of this process
        log(kLogError,
            "database %s is used by a process of another container that has the same number as this one, "
            "%ld; let processes that share a database run in one pid namespace; or another program keeps a "
            "lock of the file; as root of the host, fuser -v %s-lock lists who uses it",
            file().c_str(), static_cast<long>(getpid()), file().c_str());
    } else if (!result.is_timeout()) {  // the wait has reported the holder
        log(kLogError, "database %s: %s; check the directory and its permissions", file().c_str(),
            result.text());
    }
}

Result Environment::begin_write(Growth growth, MDB_txn *&txn) {
    Result rc = Result::of_lmdb(mdb_txn_begin(env_, nullptr, 0, &txn));
    if (!rc.is_ok()) {
        return rc;
    }
    files_.begin_transaction(mdb_txn_id(txn) - 1);
    if (items_ != 0 && tree_ == Tree::kCfg && is_mirror_of_others(txn, meta_)) {
        rc = Result::mirror();
    } else if (growth == Growth::kGrows) {
        rc = check_room();
    }
    if (!rc.is_ok()) {
        mdb_txn_abort(txn);
    }
    return rc;
}

// A process that ends does not free its reader places.
void Environment::free_dead_readers() {
    int dead = 0;
    mdb_reader_check(env_, &dead);
}

void Environment::count_commit() {
    if (commits_.fetch_add(1, std::memory_order_relaxed) % kCommitsBetweenChecks ==
        kCommitsBetweenChecks - 1) {
        free_dead_readers();
    }
}

// Threads start their search at different places to avoid contention. No
// thread-local storage: its first use may enter the dynamic loader.
Result Environment::take_reader(MDB_txn *&txn) {
    const std::size_t first = static_cast<std::size_t>(pthread_self()) >> 12;
    for (std::size_t i = 0; i < kIdleReaders; ++i) {
        auto &place = idle_[(first + i) % kIdleReaders];
        if (place.load(std::memory_order_relaxed) == nullptr) {
            continue;
        }
        txn = place.exchange(nullptr, std::memory_order_acquire);
        if (txn == nullptr) {
            continue;
        }
        const int rc = mdb_txn_renew(txn);
        if (rc != 0) {
            mdb_txn_abort(txn);
        }
        return Result::of_lmdb(rc);
    }
    int rc = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn);
    if (rc == MDB_READERS_FULL) {
        free_dead_readers();
        rc = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn);
    }
    return Result::of_lmdb(rc);
}

void Environment::give_back_reader(MDB_txn *txn) {
    mdb_txn_reset(txn);
    const std::size_t first = static_cast<std::size_t>(pthread_self()) >> 12;
    for (std::size_t i = 0; i < kIdleReaders; ++i) {
        MDB_txn *expected = nullptr;
        auto &place = idle_[(first + i) % kIdleReaders];
        if (place.compare_exchange_strong(expected, txn, std::memory_order_release,
                                          std::memory_order_relaxed)) {
            return;
        }
    }
    mdb_txn_abort(txn);
}

ReadTxn::~ReadTxn() {
    end();
}

void ReadTxn::end() {
    if (txn_ != nullptr) {
        environment_.give_back_reader(txn_);
        txn_ = nullptr;
    }
}

cerrno ReadTxn::report(Result result) {
    if (result.is_failure_of_storage()) {
        end();
    }
    return environment_.report(result);
}

cerrno ReadTxn::begin() {
    MDB_txn *txn = nullptr;
    const Result rc = environment_.take_reader(txn);
    if (rc.is_ok()) {
        txn_ = txn;
    }
    return environment_.report(rc);
}

}  // namespace sysdb_lmdb
