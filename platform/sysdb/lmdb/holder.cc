// SPDX-License-Identifier: Apache-2.0
//
// What is certain about a number in the lock file, and what to do about its process.

#include "holder.hpp"

#include <unistd.h>

#include "host.hpp"
#include "process.hpp"

namespace sysdb_lmdb {
namespace {

// This thread waits for the lock, so it does not hold it: the number is that of a process in
// another container, or a member of the group has written it. To end this process would not
// free the lock.
void log_own_number(const std::string &database, pid_t thread, long waited_ms) {
    log(kLogError,
        "database %s: a lock has been kept for more than %ld ms; %s-lock names process %ld, which is the "
        "number of this process, but it does not hold the lock: the holder runs in another container, where "
        "it "
        "has the same number; let processes that share a database run in one pid namespace; look as root of "
        "the host who uses the database: fuser -v %s-lock",
        database.c_str(), waited_ms, database.c_str(), static_cast<long>(thread), database.c_str());
}

void log_thread_of_this_process(const std::string &database, pid_t thread, const Process &self,
                                long waited_ms) {
    log(kLogError,
        "database %s: a lock has been kept for more than %ld ms; %s-lock names thread %ld of this process, "
        "%ld "
        "(%s), or one of another container with the same number; look as root of the host who uses the "
        "database: fuser -v %s-lock; if no other process does, start this program again",
        database.c_str(), waited_ms, database.c_str(), static_cast<long>(thread), static_cast<long>(self.pid),
        self.name.c_str(), database.c_str());
}

void log_unverified(const std::string &database, pid_t thread, const char *why, long waited_ms) {
    log(kLogError,
        "database %s: a lock has been kept for more than %ld ms; %s-lock names process %ld, which %s, so "
        "that it could not be verified; look as root who uses the database: fuser -v %s-lock",
        database.c_str(), waited_ms, database.c_str(), static_cast<long>(thread), why, database.c_str());
}

}  // namespace

void log_holder(const std::string &database, const FileIdentity &lock_file, pid_t thread, Witness witness,
                long waited_ms) {
    if (thread <= 0) {
        log(kLogError, "database %s: another process has kept a lock for more than %ld ms; try again",
            database.c_str(), waited_ms);
        return;
    }
    if (witness == Witness::kLockFile && thread == gettid()) {
        log_own_number(database, thread, waited_ms);
        return;
    }
    const Descriptor directory = process_directory(thread);
    const char *why = witness == Witness::kKernel ? nullptr : doubt_that_it_uses(directory, lock_file);
    if (why != nullptr) {
        log_unverified(database, thread, why, waited_ms);
        return;
    }
    const Process holder = process_of(thread, directory);
    if (holder.pid == getpid()) {
        log_thread_of_this_process(database, thread, holder, waited_ms);
        return;
    }
    log(kLogError,
        "database %s: process %ld (%s)%s has kept a lock for more than %ld ms; let it go on: kill -CONT %ld, "
        "or end it: kill -KILL %ld",
        database.c_str(), static_cast<long>(holder.pid), holder.name.c_str(),
        holder.is_stopped ? ", which is stopped," : "", waited_ms, static_cast<long>(holder.pid),
        static_cast<long>(holder.pid));
}

}  // namespace sysdb_lmdb
