// SPDX-License-Identifier: Apache-2.0
//
// Reading LMDB's table of readers, and who keeps an entry of it. A process with entries keeps
// a record lock on the byte of the lock file whose offset is its number. So the kernel knows
// the process, whatever the table says, and gives its number in this container.

#include "readers.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "host.hpp"
#include "process.hpp"

namespace sysdb_lmdb {
namespace {

// "pid thread txnid"; a reader that is idle has no txnid, and the first line is a heading.
int look_at_line(const char *line, void *context) {
    auto &oldest = *static_cast<std::optional<Reader> *>(context);
    int number = 0;
    unsigned long thread = 0;
    unsigned long txnid = 0;
    if (std::sscanf(line, "%d %lx %lu", &number, &thread, &txnid) == 3 &&
        (!oldest || txnid < oldest->txnid)) {
        oldest = Reader{number, thread, txnid};
    }
    return 0;
}

// The kernel's answer: -1 when no other process keeps the byte; 0 for one that has no number
// in this container.
pid_t keeper_of(int lock_fd, pid_t number) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = number;
    lock.l_len = 1;
    const bool is_kept = fcntl(lock_fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    return is_kept ? lock.l_pid : -1;
}

}  // namespace

std::optional<Reader> oldest_reader(MDB_env *env) {
    std::optional<Reader> oldest;
    mdb_reader_list(env, look_at_line, &oldest);
    return oldest;
}

bool is_reader_alive(int lock_fd, pid_t number) {
    return number == getpid() || keeper_of(lock_fd, number) >= 0;
}

void log_reader(const std::string &database, int lock_fd, const Reader &reader, long waited_ms) {
    if (reader.number == getpid()) {
        log(kLogError,
            "database %s has no room, because a reader has used an old state for more than %ld ms; %s-lock "
            "names "
            "a thread of this process, %ld; start this program again",
            database.c_str(), waited_ms, database.c_str(), static_cast<long>(reader.number));
        return;
    }
    // Opened first: if the kernel still names the process afterwards, this is its directory.
    const pid_t first = keeper_of(lock_fd, reader.number);
    const Descriptor directory = first > 0 ? process_directory(first) : Descriptor();
    const pid_t keeper = keeper_of(lock_fd, reader.number);
    if (keeper <= 0 || keeper != first) {
        log(kLogError,
            "database %s has no room, because a reader has used an old state for more than %ld ms; %s-lock "
            "names "
            "process %ld, which does not use it here, but may in another container; look as root of the host "
            "who "
            "uses the database: fuser -v %s-lock",
            database.c_str(), waited_ms, database.c_str(), static_cast<long>(reader.number),
            database.c_str());
        return;
    }
    const Process process = process_of(keeper, directory);
    log(kLogError,
        "database %s has no room, because process %ld (%s)%s has read an old state for more than %ld ms; let "
        "it "
        "go on: kill -CONT %ld, or end it: kill -KILL %ld",
        database.c_str(), static_cast<long>(process.pid), process.name.c_str(),
        process.is_stopped ? ", which is stopped," : "", waited_ms, static_cast<long>(process.pid),
        static_cast<long>(process.pid));
}

}  // namespace sysdb_lmdb
