// SPDX-License-Identifier: Apache-2.0
//
// Opening and checking one database file.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string_view>

#include "environment.hpp"
#include "host.hpp"
#include "new_directory.hpp"
#include "page_check.hpp"

namespace sysdb_lmdb {
namespace {

constexpr unsigned kOpenFlags = MDB_NOSUBDIR | MDB_NOTLS;
constexpr unsigned kMaxReaders = 1024;
constexpr MDB_dbi kMaxTables = 8;
constexpr int kOpenAttempts = 5;
constexpr int kSnapshotAttempts = 8;

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

// LMDB is about to abort the process: it has found an inconsistency.
void log_assertion(MDB_env *env, const char *text) {
    const char *path = "?";
    mdb_env_get_path(env, &path);
    log(kLogError, "database %s is damaged: %s; this process ends; restore the file from a backup", path,
        text);
}

}  // namespace

Result Environment::open_handle(std::size_t map_bytes, unsigned flags) {
    close_handle();
    int rc = mdb_env_create(&env_);
    if (rc != 0) {
        env_ = nullptr;
        return Result::of_lmdb(rc);
    }
    mdb_env_set_assert(env_, log_assertion);
    rc = mdb_env_set_mapsize(env_, map_bytes);
    rc = rc != 0 ? rc : mdb_env_set_maxreaders(env_, kMaxReaders);
    rc = rc != 0 ? rc : mdb_env_set_maxdbs(env_, kMaxTables);
    if (rc == 0) {
        files_.begin_opening();
        rc = mdb_env_open(env_, file().c_str(), kOpenFlags | flags, 0);
        files_.end_opening(rc == 0);
    }
    return Result::of_lmdb(rc);
}

// A process without permission to write may still read. A file that was replaced between
// its check and its opening is looked at again.
cerrno Environment::open_file(std::size_t map_bytes) {
    Result rc = Result::of_errno(ESTALE);
    for (int attempt = 0; attempt < kOpenAttempts && (rc.is_errno(ESTALE) || rc.is_errno(ENOENT));
         ++attempt) {
        const cerrno prepared = files_.prepare();
        if (prepared != 0) {
            return prepared;
        }
        const Descriptor data = files_.open_to_read();
        if (data && files_.has_lost_contents(data.get())) {
            if (attempt == 0) {
                continue;  // the mark may be of a file that was just removed
            }
            return report_damage(kEmptiedFile);
        }
        const FileHead head = data ? inspect_head(data.get()) : FileHead{};
        if (head.fault != nullptr) {
            return report_damage(head.fault);
        }
        const auto bytes = std::max<std::size_t>(map_bytes, head.map_bytes);
        rc = open_handle(bytes, 0);
        if (rc.is_errno(EACCES) || rc.is_errno(EROFS)) {
            rc = open_handle(bytes, MDB_RDONLY);
            read_only_ = rc.is_ok();
        }
    }
    return report(rc);
}

cerrno Environment::open_once(Tree tree, const Settings &settings, EnvironmentPtr &environment) {
    const std::string &file = tree == Tree::kCfg ? settings.cfg_file : settings.oper_file;
    environment.reset();  // before the file is opened again
    environment.reset(new Environment(file, tree, settings.wait_ms));
    cerrno rc = environment->open_file(settings.map_bytes);
    if (rc == 0) {
        environment->free_dead_readers();
        rc = environment->check_contents();
    }
    return rc == 0 ? environment->open_tables() : rc;
}

// Other processes may enlarge the map while this one opens the file.
cerrno Environment::open(Tree tree, const Settings &settings, EnvironmentPtr &result) {
    EnvironmentPtr environment;
    cerrno rc = open_once(tree, settings, environment);
    for (int attempt = 1; attempt < kOpenAttempts && rc == SYSDB_ERR_BUSY && environment->broken();
         ++attempt) {
        rc = open_once(tree, settings, environment);
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
    const std::string data = shell_word(file());
    const std::string lock = shell_word(files_.lock_path());
    log(kLogError,
        tree_ == Tree::kCfg
            ? "database %s cannot be used: %s; restore it from a backup: rm -f %s %s && aaactl sysdb load "
              "BACKUP "
              "(without a backup, \"rm\" alone begins with an empty one)"
            : "database %s cannot be used: %s; it holds nothing that is kept, so begin with an empty one: "
              "rm -f %s %s && aaactl sg publish",
        file().c_str(), fault, data.c_str(), lock.c_str());
    return SYSDB_ERR_CORRUPT;
}

// ---- the check of the pages: LMDB does not check what it reads, and a damaged page would
// crash the process later

bool Environment::is_marked() {
    ReadTxn txn(*this);
    return txn.begin() == 0 && files_.is_marked(mdb_txn_id(txn.get()));
}

// Sets the number of the transaction whose pages were read; 0 when other processes write
// constantly, so that the file must be sound.
cerrno Environment::walk_pages(std::uint64_t &txnid) {
    for (int attempt = 0; attempt < kSnapshotAttempts; ++attempt) {
        ReadTxn txn(*this);
        const cerrno rc = txn.begin();
        if (rc != 0) {
            return rc;
        }
        txnid = mdb_txn_id(txn.get());
        bool stale = false;
        const char *fault = find_page_fault(files_.data_fd(), txnid, stale);
        txn.end();
        if (!stale) {
            return fault == nullptr ? 0 : report_damage(fault);
        }
    }
    txnid = 0;
    return 0;
}

// The usual case is the first line. Otherwise a writer may be at work, or was killed, or
// the file was changed by something else: the pages are read once, and the file is
// marked, for which no one may write meanwhile.
cerrno Environment::check_contents() {
    if (is_marked()) {
        return 0;
    }
    if (read_only_) {
        std::uint64_t txnid = 0;
        return walk_pages(txnid);
    }
    const DatabaseFiles::BriefWait brief(files_);
    MDB_txn *writer = nullptr;
    FileState before;
    bool is_known = false;
    if (begin_write(Growth::kShrinks, writer).is_ok()) {
        const std::uint64_t newest = mdb_txn_id(writer) - 1;
        const bool marked = files_.is_marked(newest);
        is_known = files_.current_state(newest, before);
        mdb_txn_abort(writer);
        if (marked) {
            return 0;
        }
    }
    std::uint64_t walked = 0;
    const cerrno rc = walk_pages(walked);
    if (rc != 0 || !begin_write(Growth::kShrinks, writer).is_ok()) {
        return rc;
    }
    const cerrno marked = check_locked(before, is_known && walked == before.txnid);
    mdb_txn_abort(writer);
    return marked;
}

// With the writer's lock. If others have written since the walk, it is repeated: a file
// that is written constantly would never be marked.
cerrno Environment::check_locked(const FileState &walked, bool has_walked) {
    FileState now;
    std::uint64_t newest = 0;
    {
        ReadTxn txn(*this);
        if (txn.begin() != 0) {
            return 0;
        }
        newest = mdb_txn_id(txn.get());
    }
    if (!files_.current_state(newest, now) || files_.is_marked(newest)) {
        return 0;
    }
    if (!has_walked || now != walked) {
        std::uint64_t txnid = 0;
        const cerrno rc = walk_pages(txnid);
        if (rc != 0) {
            return rc;
        }
    }
    files_.mark(newest);
    return 0;
}

// ---- the tables

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
        file().c_str());
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
    return open_handles_of_tables();
}

cerrno Environment::open_handles_of_tables() {
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

}  // namespace sysdb_lmdb
