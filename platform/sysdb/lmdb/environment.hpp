// SPDX-License-Identifier: Apache-2.0
//
// One open database file and its transactions.
//
// A process must never have the same file open twice: LMDB's lock file uses
// POSIX record locks, and closing one of the two would drop those of both.
// Therefore only Database opens and closes an Environment.
#pragma once

#include <lmdb.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "database_files.hpp"
#include "deadline.hpp"
#include "key.hpp"
#include "result.hpp"
#include "settings.hpp"

namespace sysdb_lmdb {

class Environment {
  public:
    static cerrno open(Tree tree, const Settings &settings, std::shared_ptr<Environment> &result);
    ~Environment();
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

    Tree tree() const { return tree_; }
    const std::string &file() const { return files_.path(); }
    // The one that the file is in.
    const Directory &directory() const { return files_.directory(); }
    bool read_only() const { return read_only_; }
    MDB_dbi meta() const { return meta_; }
    MDB_dbi items() const { return items_; }
    MDB_dbi log_table() const { return log_; }
    MDB_dbi watches() const { return watches_; }
    // Grows with every opening in this process.
    std::uint64_t generation() const { return generation_; }
    // Changes to remember: as many as a 4096th of the map, bounded.
    std::uint64_t log_capacity() const { return log_capacity_; }

    // Why the file has to be opened again, or null: the name now belongs to another
    // file or to none, or the permissions now allow more.
    const char *outdated() const;
    // In a child, which never uses it again.
    void forget() { files_.forget(); }
    // Expires when the files have been closed; that of a pointer to this object expires before.
    std::weak_ptr<const void> presence() const { return presence_; }
    // Must be closed and opened again.
    bool broken() const { return broken_.load(std::memory_order_relaxed); }

    // The code for a result. Logs failures that concern an administrator.
    cerrno report(Result result);

    // One write transaction: body(txn) gives a Result, ok commits.
    // A growing one is refused when the remaining room is needed for deletions. bytes: of the
    // values that it stores.
    enum class Growth { kGrows, kShrinks };
    template <typename Body>
    cerrno write(Growth growth, Body body, std::size_t bytes = 0);

    // For ReadTxn.
    Result take_reader(MDB_txn *&txn);
    void give_back_reader(MDB_txn *txn);

  private:
    // Idle read transactions; each keeps its place in the file's reader table.
    static constexpr std::size_t kIdleReaders = 16;

    Environment(std::string file, Tree tree, long wait_ms) : files_(std::move(file), wait_ms), tree_(tree) {}

    // environment_open.cc
    static cerrno open_once(Tree tree, const Settings &settings, std::shared_ptr<Environment> &environment);
    Result open_handle(std::size_t map_bytes, unsigned flags);
    void close_handle();
    cerrno open_file(std::size_t map_bytes);
    bool is_marked();
    cerrno walk_pages(std::uint64_t &txnid);
    cerrno check_contents();
    cerrno check_locked(const FileState &walked, bool has_walked);
    cerrno open_tables();
    cerrno open_handles_of_tables();
    Result find_stamp(MDB_txn *txn, bool &empty);
    Result make_tables(MDB_txn *txn);
    void log_failure(Result result);
    cerrno report_foreign();
    cerrno report_damage(const char *fault);

    // environment.cc
    template <typename Body>
    Result attempt(Growth growth, Body &body);
    Result begin_write(Growth growth, MDB_txn *&txn);
    void free_dead_readers();
    void count_commit();

    // environment_room.cc
    struct Room;
    Result check_room();
    Result measure_room(std::uint64_t oldest, std::size_t enough, Room &room);
    std::size_t reserve() const;
    std::size_t pages_needed(Growth growth, std::size_t bytes) const;
    bool is_map_outgrown();
    bool keeps_room(const Reader &reader, std::size_t needed);
    Result give_up_waiting(const Reader &reader, bool is_first);
    Result wait_for_reader(const timespec &deadline, std::size_t needed, bool is_first);
    // After a change that found the map full, how it ends when it is made again until its
    // room is free: again() is the change.
    template <typename Again>
    Result when_there_is_room(Growth growth, std::size_t bytes, Again again);

    const std::shared_ptr<const void> presence_ = std::make_shared<char>();  // first, so destroyed last
    DatabaseFiles files_;
    const Tree tree_;
    MDB_env *env_ = nullptr;
    MDB_dbi meta_ = 0;
    MDB_dbi items_ = 0;
    MDB_dbi log_ = 0;
    MDB_dbi watches_ = 0;
    bool read_only_ = false;
    std::uint64_t generation_ = 0;
    std::uint64_t log_capacity_ = 0;
    std::atomic<bool> broken_{false};
    std::atomic<unsigned> commits_{0};
    std::array<std::atomic<MDB_txn *>, kIdleReaders> idle_{};
};

using EnvironmentPtr = std::shared_ptr<Environment>;

// A consistent view of the database for the life of the object.
class ReadTxn {
  public:
    explicit ReadTxn(Environment &environment) : environment_(environment) {}
    ~ReadTxn();
    ReadTxn(const ReadTxn &) = delete;
    ReadTxn &operator=(const ReadTxn &) = delete;

    cerrno begin();
    // Before anything that may take long, as a log line does whose reader has stopped: pages
    // that this view may read are not used again while it lasts.
    void end();
    MDB_txn *get() const { return txn_; }
    Environment &environment() const { return environment_; }
    // The code for a result. Ends the view before it logs a failure.
    cerrno report(Result result);

  private:
    Environment &environment_;
    MDB_txn *txn_ = nullptr;
};

// A cursor that closes itself; for read transactions, and for write
// transactions inside their body.
class Cursor {
  public:
    Cursor() = default;
    ~Cursor() {
        if (cursor_ != nullptr) {
            mdb_cursor_close(cursor_);
        }
    }
    Cursor(const Cursor &) = delete;
    Cursor &operator=(const Cursor &) = delete;

    Result open(MDB_txn *txn, MDB_dbi table) {
        return Result::of_lmdb(mdb_cursor_open(txn, table, &cursor_));
    }
    Result get(MDB_val &key, MDB_val &value, MDB_cursor_op op) {
        return Result::of_lmdb(mdb_cursor_get(cursor_, &key, &value, op));
    }
    Result erase() { return Result::of_lmdb(mdb_cursor_del(cursor_, 0)); }

  private:
    MDB_cursor *cursor_ = nullptr;
};

template <typename Body>
Result Environment::attempt(Growth growth, Body &body) {
    MDB_txn *txn = nullptr;
    Result rc = begin_write(growth, txn);
    if (!rc.is_ok()) {
        return rc;
    }
    // An open transaction is the writer's lock of every process.
    try {
        rc = body(txn);
    } catch (...) {
        mdb_txn_abort(txn);
        throw;
    }
    if (!rc.is_ok()) {
        mdb_txn_abort(txn);
        return rc;
    }
    return Result::of_lmdb(mdb_txn_commit(txn));
}

template <typename Again>
Result Environment::when_there_is_room(Growth growth, std::size_t bytes, Again again) {
    if (is_map_outgrown()) {
        return Result::of_lmdb(MDB_MAP_RESIZED);
    }
    const timespec deadline = after(files_.wait_ms());
    auto rc = Result::of_lmdb(MDB_MAP_FULL);
    for (bool is_first = true; rc.is_lmdb(MDB_MAP_FULL); is_first = false) {
        const Result waited = wait_for_reader(deadline, pages_needed(growth, bytes), is_first);
        if (!waited.is_ok()) {
            return waited;
        }
        rc = again();
    }
    return rc;
}

template <typename Body>
cerrno Environment::write(Growth growth, Body body, std::size_t bytes) {
    if (read_only_) {
        return SYSDB_ERR_READ_ONLY;
    }
    Result rc = attempt(growth, body);
    if (rc.is_lmdb(MDB_MAP_FULL) || rc.is_lmdb(MDB_READERS_FULL)) {
        // Readers that died inside a transaction prevent the reuse of pages.
        free_dead_readers();
        rc = attempt(growth, body);
    }
    if (rc.is_lmdb(MDB_MAP_FULL)) {
        rc = when_there_is_room(growth, bytes, [&] { return attempt(growth, body); });
    }
    if (rc.is_ok()) {
        count_commit();
    }
    return report(rc);
}

}  // namespace sysdb_lmdb
