// SPDX-License-Identifier: Apache-2.0
//
// Opening and checking one database file, its transactions, and its readers'
// places.

#include "environment.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host.hpp"
#include "page_check.hpp"

namespace sysdb_lmdb {
namespace {

constexpr unsigned kOpenFlags = MDB_NOSUBDIR | MDB_NOTLS;
constexpr unsigned kMaxReaders = 1024;
constexpr MDB_dbi kMaxTables = 8;
constexpr unsigned kCommitsBetweenChecks = 64;
constexpr std::size_t kReservedPages = 64;
constexpr int kSnapshotAttempts = 8;
constexpr MDB_dbi kFreeList = 0;  // LMDB's own table of pages to use again

constexpr char kMetaTable[] = "meta";
constexpr char kItemsTable[] = "items";
constexpr char kLogTable[] = "log";
constexpr char kWatchTable[] = "watch";
constexpr std::string_view kStampKey = "format";

constinit std::atomic<std::uint64_t> g_generations{0};

// Distinguishes this database from other LMDB files, and the two trees.
std::string_view stamp_of(Tree tree) {
    return tree == Tree::kCfg ? "aaa-sysdb 1 cfg" : "aaa-sysdb 1 oper";
}

std::string lock_file_of(const std::string &file) {
    return file + "-lock";
}

// LMDB is about to abort the process: it has found an inconsistency.
void log_assertion(MDB_env *env, const char *text) {
    const char *path = "?";
    mdb_env_get_path(env, &path);
    log(kLogError, "database %s is damaged: %s; this process ends; restore the file from a backup", path,
        text);
}

}  // namespace

Environment::~Environment() {
    for (auto &place : idle_) {
        mdb_txn_abort(place.load(std::memory_order_acquire));
    }
    if (env_ != nullptr) {
        mdb_env_close(env_);
    }
}

Result Environment::open_handle(std::size_t map_bytes, unsigned flags) {
    if (env_ != nullptr) {
        mdb_env_close(env_);
        env_ = nullptr;
    }
    int rc = mdb_env_create(&env_);
    if (rc != 0) {
        env_ = nullptr;
        return Result::of_lmdb(rc);
    }
    mdb_env_set_assert(env_, log_assertion);
    rc = mdb_env_set_mapsize(env_, map_bytes);
    rc = rc != 0 ? rc : mdb_env_set_maxreaders(env_, kMaxReaders);
    rc = rc != 0 ? rc : mdb_env_set_maxdbs(env_, kMaxTables);
    rc = rc != 0 ? rc : mdb_env_open(env_, file_.c_str(), kOpenFlags | flags, kFileMode);
    return Result::of_lmdb(rc);
}

// A process without permission to write may still read.
cerrno Environment::open_file(std::size_t map_bytes) {
    const FileHead head = inspect_head(file_);
    if (head.fault != nullptr) {
        return report_damage(head.fault);
    }
    map_bytes = std::max<std::size_t>(map_bytes, head.map_bytes);
    FileIdentity before;
    const bool existed = identify(file_, before);
    Result rc = open_handle(map_bytes, 0);
    if (existed && (rc.is_errno(EACCES) || rc.is_errno(EROFS))) {
        rc = open_handle(map_bytes, MDB_RDONLY);
        read_only_ = rc.is_ok();
    }
    if (!rc.is_ok()) {
        return report(rc);
    }
    if (!existed) {
        set_file_mode(file_, kFileMode);
        set_file_mode(lock_file_of(file_), kFileMode);
        sync_directory(parent_of(file_));
    }
    int fd = -1;
    struct stat status;
    if (mdb_env_get_fd(env_, &fd) != 0 || fstat(fd, &status) != 0) {
        return report(Result::of_errno(errno));
    }
    identity_ = {status.st_dev, status.st_ino};
    close_on_exec(identity_);
    return 0;
}

cerrno Environment::open(const std::string &file, Tree tree, std::size_t map_bytes, EnvironmentPtr &result) {
    EnvironmentPtr environment(new Environment(file, tree));
    cerrno rc = ensure_directory(parent_of(file));
    if (rc == 0) {
        rc = environment->open_file(map_bytes);
    }
    if (rc == 0) {
        environment->free_dead_readers();
        rc = environment->check_contents();
    }
    if (rc == 0) {
        rc = environment->open_tables();
    }
    if (rc != 0) {
        return rc;
    }
    MDB_envinfo info;
    mdb_env_info(environment->env_, &info);
    environment->log_capacity_ = std::clamp<std::uint64_t>(info.me_mapsize / 4096, 256, 65536);
    environment->generation_ = g_generations.fetch_add(1, std::memory_order_relaxed) + 1;
    result = std::move(environment);
    return 0;
}

cerrno Environment::report_damage(const char *fault) {
    log(kLogError,
        "database %s cannot be used: %s; restore it from a backup, or remove it (with %s) to begin with an "
        "empty one",
        file_.c_str(), fault, lock_file_of(file_).c_str());
    return SYSDB_ERR_CORRUPT;
}

// LMDB does not check what it reads; a damaged page would crash the process later.
cerrno Environment::check_contents() {
    int fd = -1;
    mdb_env_get_fd(env_, &fd);
    for (int attempt = 0; attempt < kSnapshotAttempts; ++attempt) {
        ReadTxn txn(*this);
        const cerrno rc = txn.begin();
        if (rc != 0) {
            return rc;
        }
        bool stale = false;
        const char *fault = find_page_fault(fd, mdb_txn_id(txn.get()), stale);
        if (!stale) {
            return fault == nullptr ? 0 : report_damage(fault);
        }
    }
    return 0;  // other processes write it constantly, so it is sound
}

// Not found when there is no stamp, MDB_INCOMPATIBLE for another one.
Result Environment::find_stamp(MDB_txn *txn, bool &empty) {
    MDB_dbi root = 0;
    int rc = mdb_dbi_open(txn, nullptr, 0, &root);
    if (rc != 0) {
        return Result::of_lmdb(rc);
    }
    MDB_stat statistics;
    rc = mdb_stat(txn, root, &statistics);
    empty = rc == 0 && statistics.ms_entries == 0;
    if (rc == 0) {
        rc = mdb_dbi_open(txn, kMetaTable, 0, &meta_);
    }
    MDB_val key = value_of(kStampKey);
    MDB_val value;
    if (rc == 0) {
        rc = mdb_get(txn, meta_, &key, &value);
    }
    if (rc == 0 && view_of(value) != stamp_of(tree_)) {
        rc = MDB_INCOMPATIBLE;
    }
    return Result::of_lmdb(rc);
}

Result Environment::make_tables(MDB_txn *txn) {
    int rc = mdb_dbi_open(txn, kMetaTable, MDB_CREATE, &meta_);
    MDB_val key = value_of(kStampKey);
    MDB_val value = value_of(stamp_of(tree_));
    if (rc == 0) {
        rc = mdb_put(txn, meta_, &key, &value, 0);
    }
    MDB_dbi table = 0;
    if (rc == 0) {
        rc = mdb_dbi_open(txn, kItemsTable, MDB_CREATE, &table);
    }
    if (rc == 0) {
        rc = mdb_dbi_open(txn, kLogTable, MDB_CREATE | MDB_INTEGERKEY, &table);
    }
    if (rc == 0) {
        rc = mdb_dbi_open(txn, kWatchTable, MDB_CREATE | MDB_DUPSORT, &table);
    }
    return Result::of_lmdb(rc);
}

cerrno Environment::report_foreign() {
    log(kLogError,
        "%s is not the system database this program uses (another program's file, another version, or the "
        "other tree's);"
        " it is left unchanged; move it away",
        file_.c_str());
    return SYSDB_ERR_CORRUPT;
}

cerrno Environment::open_tables() {
    bool empty = false;
    Result found = Result::ok();
    {
        ReadTxn txn(*this);
        const cerrno begun = txn.begin();
        if (begun != 0) {
            return begun;
        }
        found = find_stamp(txn.get(), empty);
    }
    if (found.is_not_found() && empty) {
        // Another process may do the same; the writer's lock decides.
        const cerrno made = write(Growth::kGrows, [this](MDB_txn *txn) {
            bool still_empty = false;
            const Result again = find_stamp(txn, still_empty);
            return again.is_not_found() && still_empty ? make_tables(txn) : again;
        });
        if (made != 0) {
            return made;
        }
    } else if (found.is_not_found() || found.is_lmdb(MDB_INCOMPATIBLE)) {
        return report_foreign();
    } else if (!found.is_ok()) {
        return report(found);
    }
    MDB_txn *txn = nullptr;
    int rc = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn);
    if (rc != 0) {
        return report(Result::of_lmdb(rc));
    }
    rc = mdb_dbi_open(txn, kMetaTable, 0, &meta_);
    rc = rc != 0 ? rc : mdb_dbi_open(txn, kItemsTable, 0, &items_);
    rc = rc != 0 ? rc : mdb_dbi_open(txn, kLogTable, MDB_INTEGERKEY, &log_);
    rc = rc != 0 ? rc : mdb_dbi_open(txn, kWatchTable, MDB_DUPSORT, &watches_);
    if (rc != 0) {
        mdb_txn_abort(txn);
        return report_foreign();
    }
    // Table handles remain valid only after a commit.
    return report(Result::of_lmdb(mdb_txn_commit(txn)));
}

const char *Environment::outdated() const {
    FileIdentity now;
    if (!identify(file_, now) || now != identity_) {
        return "has been replaced or removed";
    }
    if (read_only_ && faccessat(AT_FDCWD, file_.c_str(), W_OK, AT_EACCESS) == 0) {
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
            file_.c_str());
    } else if (result.is_lmdb(MDB_TXN_FULL)) {
        log(kLogError, "database %s: too many changes at once; make them in several parts", file_.c_str());
    } else if (result.is_lmdb(MDB_READERS_FULL)) {
        log(kLogError, "database %s has no room for another reader (%u); end some of the AAA processes",
            file_.c_str(), kMaxReaders);
    } else {
        log(kLogError, "database %s: %s; check the directory and its permissions", file_.c_str(),
            result.text());
    }
}

Result Environment::begin_write(Growth growth, MDB_txn *&txn) {
    Result rc = Result::of_lmdb(mdb_txn_begin(env_, nullptr, 0, &txn));
    if (!rc.is_ok() || growth == Growth::kShrinks) {
        return rc;
    }
    rc = check_room();
    if (!rc.is_ok()) {
        mdb_txn_abort(txn);
    }
    return rc;
}

// Pages in the file's free list. A write transaction may not read it, but the
// writer's lock keeps it unchanged while a reader counts.
Result Environment::count_free_pages(std::size_t enough, std::size_t &pages) {
    MDB_txn *txn = nullptr;
    Result rc = take_reader(txn);
    if (!rc.is_ok()) {
        return rc;
    }
    {
        Cursor cursor;
        MDB_val key;
        MDB_val value;
        rc = cursor.open(txn, kFreeList);
        while (rc.is_ok() && pages < enough && (rc = cursor.get(key, value, MDB_NEXT)).is_ok()) {
            std::size_t listed = 0;  // each record is a count and as many page numbers
            std::memcpy(&listed, value.mv_data, std::min(sizeof listed, value.mv_size));
            pages += listed;
        }
    }
    give_back_reader(txn);
    return rc.ok_if_not_found();
}

// Deletion writes new pages before it frees others. Without a reserve a full
// database could not be emptied.
Result Environment::check_room() {
    MDB_envinfo info;
    MDB_stat statistics;
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &statistics);
    const std::size_t pages = info.me_mapsize / statistics.ms_psize;
    const std::size_t reserve = std::min(kReservedPages, pages / 8);
    std::size_t available = pages - std::min(pages, info.me_last_pgno + 1);
    if (available >= reserve) {
        return Result::ok();
    }
    const Result rc = count_free_pages(reserve, available);
    return rc.is_ok() && available < reserve ? Result::of_lmdb(MDB_MAP_FULL) : rc;
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
    if (txn_ != nullptr) {
        environment_.give_back_reader(txn_);
    }
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
