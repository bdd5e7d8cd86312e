// SPDX-License-Identifier: Apache-2.0
//
// Room in the map: what is kept for deletions, and what readers keep.

#include <algorithm>
#include <cstring>

#include "environment.hpp"
#include "head_check.hpp"
#include "host.hpp"

namespace sysdb_lmdb {
namespace {

constexpr std::size_t kReservedPages = 64;
constexpr std::size_t kPagesOfADeletion = 16;  // one path of the tree of each table, and of the free list
constexpr MDB_dbi kFreeList = 0;               // LMDB's own table of pages to use again
constexpr auto kNoReader = ~std::uint64_t{0};
constexpr auto kCountAll = ~std::size_t{0};

std::size_t sum(std::size_t a, std::size_t b) {
    return b > ~a ? ~std::size_t{0} : a + b;
}

}  // namespace

struct Environment::Room {
    std::size_t unused = 0;  // pages that were never used
    std::size_t free = 0;    // listed as free, and used again by the next change
    std::size_t kept = 0;    // listed as free, but readers may still read them
    std::size_t usable() const { return sum(unused, free); }
};

// Deletion writes new pages before it frees others. Without a reserve a full
// database could not be emptied.
std::size_t Environment::reserve() const {
    MDB_envinfo info;
    MDB_stat statistics;
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &statistics);
    return std::min(kReservedPages, info.me_mapsize / statistics.ms_psize / 8);
}

std::size_t Environment::pages_needed(Growth growth, std::size_t bytes) const {
    MDB_stat statistics;
    mdb_env_stat(env_, &statistics);
    return growth == Growth::kShrinks ? kPagesOfADeletion : sum(reserve(), bytes / statistics.ms_psize + 1);
}

// A write transaction may not read the free list, but the writer's lock keeps it unchanged
// while a reader counts. oldest: the state that the oldest reader reads. Ends early with
// enough usable pages.
Result Environment::measure_room(std::uint64_t oldest, std::size_t enough, Room &room) {
    MDB_envinfo info;
    MDB_stat statistics;
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &statistics);
    const std::size_t pages = info.me_mapsize / statistics.ms_psize;
    room = {.unused = pages - std::min(pages, info.me_last_pgno + 1)};
    if (room.unused >= enough) {
        return Result::ok();
    }
    MDB_txn *txn = nullptr;
    Result rc = take_reader(txn);
    if (!rc.is_ok()) {
        return rc;
    }
    {
        const std::uint64_t newest = mdb_txn_id(txn);
        Cursor cursor;
        MDB_val key;
        MDB_val value;
        rc = cursor.open(txn, kFreeList);
        while (rc.is_ok() && room.usable() < enough && (rc = cursor.get(key, value, MDB_NEXT)).is_ok()) {
            std::uint64_t freed_by = 0;
            std::size_t listed = 0;  // each record is a count and as many page numbers
            std::memcpy(&freed_by, key.mv_data, std::min(sizeof freed_by, key.mv_size));
            std::memcpy(&listed, value.mv_data, std::min(sizeof listed, value.mv_size));
            std::size_t &place = freed_by >= oldest && freed_by < newest ? room.kept : room.free;
            place = sum(place, listed);
        }
    }
    give_back_reader(txn);
    return rc.ok_if_not_found();
}

Result Environment::check_room() {
    Room room;
    const std::size_t enough = reserve();
    const Result rc = measure_room(kNoReader, enough, room);
    return rc.is_ok() && room.usable() < enough ? Result::of_lmdb(MDB_MAP_FULL) : rc;
}

// Another process uses a larger map, which its first change has written into the head.
bool Environment::is_map_outgrown() {
    MDB_envinfo info;
    const Descriptor data = files_.open_to_read();
    return mdb_env_info(env_, &info) == 0 && data && inspect_head(data.get()).map_bytes > info.me_mapsize;
}

// Whether the change would have found its room without this reader. Many free pages do not
// help a large value, which needs adjacent ones.
bool Environment::keeps_room(const Reader &reader, std::size_t needed) {
    Room room;
    return measure_room(reader.txnid, kCountAll, room).is_ok() && sum(room.usable(), room.kept) >= needed &&
           (room.usable() < needed || room.kept >= needed);
}

// For a change that has waited long enough. is_first: this reader has been waited for from the
// beginning, and not after another one.
Result Environment::give_up_waiting(const Reader &reader, bool is_first) {
    if (is_first) {
        files_.report_reader(reader);
    } else {
        log(kLogError,
            "database %s has no room while so many processes read it; try again, or set AAA_SYSDB_MAP_MIB to "
            "a larger size",
            file().c_str());
    }
    return Result::of_errno(ETIMEDOUT);
}

// Ok once the oldest reader has gone, so that the change may find room. Readers that follow
// each other without a pause are not waited for without end.
Result Environment::wait_for_reader(const timespec &deadline, std::size_t needed, bool is_first) {
    const std::optional<Reader> reader = oldest_reader(env_);
    if (!reader || !keeps_room(*reader, needed)) {
        return Result::of_lmdb(MDB_MAP_FULL);
    }
    if (!is_first && has_passed(deadline)) {
        return give_up_waiting(*reader, is_first);
    }
    while (oldest_reader(env_) == reader) {
        if (!files_.is_alive(*reader)) {
            free_dead_readers();
        }
        if (has_passed(deadline)) {
            return give_up_waiting(*reader, is_first);
        }
        pause_briefly();
    }
    return Result::ok();
}

}  // namespace sysdb_lmdb
